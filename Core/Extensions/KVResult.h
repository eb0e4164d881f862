#pragma once

#include "Core/Extensions/KVError.h"

#include <QtGlobal>

#include <utility>
#include <variant>

// What a fallible call gives back: its value, or the error that kept it from one. A function
// returns `value`, `KVError(...)` or, when it yields nothing, `{}`; the caller tests the result
// before it touches the value, and the compiler reminds it to look at all.
template <typename T = void> class [[nodiscard]] KVResult
{
public:
    KVResult(const T &value)
        : m_outcome(std::in_place_index<0>, value)
    {}
    KVResult(T &&value)
        : m_outcome(std::in_place_index<0>, std::move(value))
    {}
    KVResult(KVError error)
        : m_outcome(std::in_place_index<1>, std::move(error))
    {
        Q_ASSERT_X(!std::get<1>(m_outcome).isNull(), "KVResult", "a failure needs an error");
    }

    bool ok() const { return m_outcome.index() == 0; }
    explicit operator bool() const { return ok(); }

    // The value; only of a result that is ok().
    const T &value() const &
    {
        Q_ASSERT(ok());
        return std::get<0>(m_outcome);
    }
    T &value() &
    {
        Q_ASSERT(ok());
        return std::get<0>(m_outcome);
    }
    T &&value() &&
    {
        Q_ASSERT(ok());
        return std::get<0>(std::move(m_outcome));
    }
    const T &operator*() const & { return value(); }
    T &operator*() & { return value(); }
    T &&operator*() && { return std::move(*this).value(); }
    const T *operator->() const { return &value(); }
    T *operator->() { return &value(); }

    // The value, or the fallback when the call failed: for callers to whom a failure means "none".
    T valueOr(T fallback) const & { return ok() ? value() : std::move(fallback); }
    T valueOr(T fallback) && { return ok() ? std::move(*this).value() : std::move(fallback); }

    // The error of a failed result; the null error of one that is ok().
    KVError error() const { return ok() ? KVError() : std::get<1>(m_outcome); }

private:
    std::variant<T, KVError> m_outcome;
};

// The result of a call that yields nothing but may fail: `return {};` is success.
template <> class [[nodiscard]] KVResult<void>
{
public:
    KVResult() = default;
    KVResult(KVError error)
        : m_error(std::move(error))
    {
        Q_ASSERT_X(!m_error.isNull(), "KVResult", "a failure needs an error");
    }

    // What an error out-parameter told: success when it was left null. Only for the calls whose
    // out-parameters are part of the engine's interface.
    static KVResult fromOutParameter(const KVError &error) { return error.isNull() ? KVResult() : KVResult(error); }

    bool ok() const { return m_error.isNull(); }
    explicit operator bool() const { return ok(); }

    // The error of a failed result; the null error of one that is ok().
    const KVError &error() const { return m_error; }

private:
    KVError m_error;
};
