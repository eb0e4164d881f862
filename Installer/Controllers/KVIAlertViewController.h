#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

class KVButton;
class KVIWindow;
class KVTextView;
class QLabel;
class QWidget;

// The installer's own alert: a card with an optional message line, an informative text, a default
// button, an optional alternate button and an optional check box, sized to its content. It is
// shown as a popup of the installer window; its buttons end the popup with the response
// {"Response": "DefaultButtonClicked" | "AlternateButtonClicked"}. The check box's state is not
// part of the response: callers read additionalCheckboxChecked().
class KVIAlertViewController : public QObject
{
    Q_OBJECT
public:
    // The texts other than the informative one may be null: a null message or check box text
    // hides that element, a null alternate text hides that button, a null default text reads "OK".
    // `window` is the installer window the card will be shown in.
    KVIAlertViewController(KVIWindow *window, const QString &messageText, const QString &informativeText,
                           const QString &defaultButtonTitle, const QString &alternateButtonTitle,
                           const QString &additionalCheckboxTitle);
    ~KVIAlertViewController() override;

    // The card; it belongs to this controller.
    QWidget *view() const { return m_view; }

    QString messageText() const { return m_messageText; }
    QString informativeText() const { return m_informativeText; }
    bool additionalCheckboxChecked() const { return m_additionalCheckboxChecked; }

    QLabel *messageTextField() const { return m_messageTextField; }
    KVTextView *informativeTextView() const { return m_informativeTextView; }
    KVButton *defaultButton() const { return m_defaultButton; }
    KVButton *alternateButton() const { return m_alternateButton; }
    KVButton *additionalCheckbox() const { return m_additionalCheckbox; }

    // Places every element for the card's current size; runs just before the card is shown.
    void layoutView();

    void defaultButtonDidClick();
    void alternateButtonDidClick();
    void additionalCheckboxDidClick();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void endPopup(const QString &response);
    // Places a widget by a frame given with y growing upwards from the card's bottom edge.
    void setFrame(QWidget *widget, const QRectF &bottomLeftFrame) const;

    QPointer<KVIWindow> m_window;
    QString m_messageText;
    QString m_informativeText;
    QString m_defaultButtonText;
    QString m_alternateButtonText;
    QString m_additionalCheckboxText;
    bool m_additionalCheckboxChecked = false;
    double m_informativeTextHeight = 0;

    QWidget *m_view;
    QLabel *m_messageTextField;
    KVTextView *m_informativeTextView;
    KVButton *m_defaultButton;
    KVButton *m_alternateButton;
    KVButton *m_additionalCheckbox;
};
