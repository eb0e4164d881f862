#pragma once

#include <functional>

// The installer's request to stop everything under way, made once when it quits (Quit, the close
// button, a termination signal). Every wait that could outlast the main loop (a transfer, a child
// process, a prompt) registers how to end it early while it runs; the engine's steps check the
// request between one another and skip what is left.
namespace KVCancellation {

// Thread: any.
[[nodiscard]] bool isRequested();
// Ends every registered wait and makes each later registration end its wait at once. Thread: any.
void request();

// Keeps a way to end one wait registered while it lives. The action runs at most once, on the
// thread that requests cancellation, and must not wait for anything itself.
class Registration
{
public:
    explicit Registration(std::function<void()> stopAction);
    ~Registration();
    Registration(const Registration &) = delete;
    Registration &operator=(const Registration &) = delete;

private:
    int m_id;
};

} // namespace KVCancellation
