#include "Core/View/KVAccessibleControls.h"

#include "Core/View/KVButton.h"
#include "Core/View/KVCheckBox.h"
#include "Core/View/KVPlainButtons.h"
#include "Core/View/KVProgressIndicator.h"
#include "Core/View/KVTextView.h"

namespace {

// The name a control is known by: the one given for assistive technology, else its title, else its
// tool tip (the icon buttons have only that).
QString nameOf(const QWidget *widget, const QString &title, const QString &toolTip = {})
{
    if (!widget->accessibleName().isEmpty())
        return widget->accessibleName();
    return title.isEmpty() ? toolTip : title;
}

class KVButtonAccessible : public QAccessibleWidget
{
public:
    KVButtonAccessible(KVButton *button, QAccessible::Role role)
        : QAccessibleWidget(button, role)
    {}

    QString text(QAccessible::Text text) const override
    {
        if (text == QAccessible::Name)
            return nameOf(button(), button()->title(), button()->toolTip());
        return QAccessibleWidget::text(text);
    }
    QStringList actionNames() const override { return {pressAction()}; }
    void doAction(const QString &action) override
    {
        if (action == pressAction())
            button()->performClick();
    }

private:
    KVButton *button() const { return static_cast<KVButton *>(widget()); }
};

class KVCheckBoxAccessible : public QAccessibleWidget
{
public:
    explicit KVCheckBoxAccessible(KVCheckBox *box)
        : QAccessibleWidget(box, QAccessible::CheckBox)
    {}

    QString text(QAccessible::Text text) const override
    {
        if (text == QAccessible::Name)
            return nameOf(box(), box()->title());
        return QAccessibleWidget::text(text);
    }
    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.checkable = true;
        state.checked = box()->checked();
        return state;
    }
    QStringList actionNames() const override { return {toggleAction(), pressAction()}; }
    void doAction(const QString &action) override
    {
        if (action == toggleAction() || action == pressAction())
            box()->performClick();
    }

private:
    KVCheckBox *box() const { return static_cast<KVCheckBox *>(widget()); }
};

class KVProgressIndicatorAccessible : public QAccessibleWidget, public QAccessibleValueInterface
{
public:
    explicit KVProgressIndicatorAccessible(KVProgressIndicator *indicator)
        : QAccessibleWidget(indicator, QAccessible::ProgressBar)
    {}

    void *interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface *>(this);
        return QAccessibleWidget::interface_cast(type);
    }
    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.busy = indicator()->isIndeterminate() && !indicator()->isPaused();
        return state;
    }
    QString text(QAccessible::Text text) const override
    {
        if (text == QAccessible::Value && !indicator()->isIndeterminate())
            return QStringLiteral("%1 %").arg(qRound(indicator()->doubleValue() * 100));
        return QAccessibleWidget::text(text);
    }
    QVariant currentValue() const override { return indicator()->doubleValue(); }
    void setCurrentValue(const QVariant &) override {} // progress is shown, not set
    QVariant maximumValue() const override { return KVProgressIndicator::maxValue; }
    QVariant minimumValue() const override { return KVProgressIndicator::minValue; }
    QVariant minimumStepSize() const override { return 0.0; }

private:
    KVProgressIndicator *indicator() const { return static_cast<KVProgressIndicator *>(widget()); }
};

QAccessibleInterface *controlsFactory(const QString &className, QObject *object)
{
    if (className == QLatin1String("KVLinkButton"))
        return new KVButtonAccessible(static_cast<KVButton *>(object), QAccessible::Link);
    if (className == QLatin1String("KVButton"))
        return new KVButtonAccessible(static_cast<KVButton *>(object), QAccessible::Button);
    if (className == QLatin1String("KVCheckBox"))
        return new KVCheckBoxAccessible(static_cast<KVCheckBox *>(object));
    if (className == QLatin1String("KVProgressIndicator"))
        return new KVProgressIndicatorAccessible(static_cast<KVProgressIndicator *>(object));
    if (className == QLatin1String("KVTextView"))
        return new KVTextViewAccessible(static_cast<KVTextView *>(object));
    return nullptr;
}

} // namespace

namespace KVAccessibleControls {

void install()
{
    static const bool installed = [] {
        QAccessible::installFactory(controlsFactory);
        return true;
    }();
    Q_UNUSED(installed);
}

} // namespace KVAccessibleControls

KVTextViewAccessible::KVTextViewAccessible(KVTextView *view)
    : QAccessibleWidget(view, QAccessible::StaticText)
{}

QAccessible::Role KVTextViewAccessible::role() const
{
    return textView()->isStatus() ? QAccessible::StatusBar : QAccessible::StaticText;
}

QString KVTextViewAccessible::text(QAccessible::Text text) const
{
    if (text == QAccessible::Name)
        return nameOf(textView(), textView()->string());
    return QAccessibleWidget::text(text);
}

KVTextView *KVTextViewAccessible::textView() const
{
    return static_cast<KVTextView *>(widget());
}
