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

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void relayout();

    QString m_string;
    KVTextAttributes m_attributes;
    std::unique_ptr<QTextDocument> m_document;
};
