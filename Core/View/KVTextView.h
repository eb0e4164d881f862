#pragma once

#include "Core/View/KVTextMeasure.h"

#include <QWidget>

#include <memory>

class QTextDocument;

// A read-only text laid out exactly as KVTextMeasure measures it, so that a view sized with a
// measured height shows all of its text and nothing more.
class KVTextView : public QWidget
{
    Q_OBJECT
public:
    explicit KVTextView(QWidget *parent = nullptr);
    ~KVTextView() override;

    QString string() const { return m_string; }
    void setString(const QString &string);
    const KVTextAttributes &attributes() const { return m_attributes; }
    void setAttributes(const KVTextAttributes &attributes);
    // A status text tells what the screen is doing; assistive technology announces each new text.
    bool isStatus() const { return m_isStatus; }
    void setStatus(bool isStatus) { m_isStatus = isStatus; }

protected:
    // The laid-out text that is drawn; decorateDocument() has already run on it.
    const QTextDocument &document() const { return *m_document; }
    // Lays the text out again, for subclasses whose decoration changed.
    void relayout();
    // Adds character formats (links, say) to a freshly laid-out document; the base adds none.
    virtual void decorateDocument(QTextDocument &) {}

    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QString m_string;
    KVTextAttributes m_attributes;
    bool m_isStatus = false;
    std::unique_ptr<QTextDocument> m_document;
};
