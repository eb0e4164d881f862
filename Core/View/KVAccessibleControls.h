#pragma once

#include <QAccessibleWidget>

class KVTextView;

// Tells assistive technology (screen readers, test tools reading the accessibility tree) what each
// drawn control is: its role, its name, its states, its value and what it can do. Qt keeps an
// object's interface once it has been asked for, so install() runs before the first control exists.
namespace KVAccessibleControls {

// Installs the factory of the drawn controls' interfaces; more than one call installs it once.
void install();

} // namespace KVAccessibleControls

// A text view as assistive technology sees it: static text named by its text, or a status bar when
// the view shows a status. Views with parts of their own (links) build on it.
class KVTextViewAccessible : public QAccessibleWidget
{
public:
    explicit KVTextViewAccessible(KVTextView *view);

    QAccessible::Role role() const override;
    QString text(QAccessible::Text text) const override;

protected:
    KVTextView *textView() const;
};
