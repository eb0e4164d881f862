#include "Installer/KVIAccessible.h"

#include "Core/View/KVAccessibleControls.h"
#include "Installer/KVILinkTextView.h"

#include <QAccessibleWidget>
#include <QPointer>

namespace {

// One link of a link text view. It is no object of its own: the view draws it and follows it.
class KVLinkAccessible : public QAccessibleInterface, public QAccessibleActionInterface
{
public:
    KVLinkAccessible(KVILinkTextView *view, qsizetype index)
        : m_view(view)
        , m_index(index)
    {}

    bool isValid() const override { return m_view && m_index < m_view->links().size(); }
    QObject *object() const override { return nullptr; }
    QWindow *window() const override { return m_view->window()->windowHandle(); }
    QAccessibleInterface *parent() const override { return QAccessible::queryAccessibleInterface(m_view); }
    QAccessibleInterface *child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface *) const override { return -1; }
    QAccessibleInterface *childAt(int, int) const override { return nullptr; }

    QString text(QAccessible::Text text) const override
    {
        const KVILinkTextView::Link &link = m_view->links().at(m_index);
        if (text == QAccessible::Name)
            return m_view->string().mid(link.location, link.length);
        if (text == QAccessible::Description)
            return link.url.toString();
        return {};
    }
    void setText(QAccessible::Text, const QString &) override {}
    QRect rect() const override
    {
        QRectF area;
        for (const QRectF &line : m_view->linkRects(m_view->links().at(m_index)))
            area |= line;
        return QRect(m_view->mapToGlobal(area.topLeft().toPoint()), area.size().toSize());
    }
    QAccessible::Role role() const override { return QAccessible::Link; }
    QAccessible::State state() const override
    {
        QAccessible::State state;
        state.focusable = true;
        state.focused = m_view->hasFocus() && m_view->focusedLink() == m_index;
        state.invisible = !m_view->isVisible();
        return state;
    }

    void *interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::ActionInterface ? static_cast<QAccessibleActionInterface *>(this) : nullptr;
    }
    QStringList actionNames() const override { return {pressAction()}; }
    void doAction(const QString &action) override
    {
        if (action == pressAction())
            m_view->activateLink(m_index);
    }
    QStringList keyBindingsForAction(const QString &) const override { return {}; }

private:
    QPointer<KVILinkTextView> m_view;
    qsizetype m_index;
};

// A link text view: its text, with one child per link.
class KVILinkTextViewAccessible : public KVTextViewAccessible
{
public:
    explicit KVILinkTextViewAccessible(KVILinkTextView *view)
        : KVTextViewAccessible(view)
    {}
    ~KVILinkTextViewAccessible() override
    {
        for (QAccessible::Id id : std::as_const(m_linkIds))
            QAccessible::deleteAccessibleInterface(id);
    }

    int childCount() const override { return int(linkView()->links().size()); }
    QAccessibleInterface *child(int index) const override
    {
        if (index < 0 || index >= childCount())
            return nullptr;
        // Qt hands out an interface by its id, so each link keeps the one it was given first.
        while (m_linkIds.size() <= index)
            m_linkIds.append(
                QAccessible::registerAccessibleInterface(new KVLinkAccessible(linkView(), m_linkIds.size())));
        return QAccessible::accessibleInterface(m_linkIds.at(index));
    }
    int indexOfChild(const QAccessibleInterface *child) const override
    {
        return int(m_linkIds.indexOf(QAccessible::uniqueId(const_cast<QAccessibleInterface *>(child))));
    }
    QAccessibleInterface *focusChild() const override
    {
        const std::optional<qsizetype> focused = linkView()->focusedLink();
        return linkView()->hasFocus() && focused ? child(int(*focused)) : nullptr;
    }

private:
    KVILinkTextView *linkView() const { return static_cast<KVILinkTextView *>(widget()); }

    mutable QList<QAccessible::Id> m_linkIds;
};

QAccessibleInterface *installerFactory(const QString &className, QObject *object)
{
    if (className == QLatin1String("KVILinkTextView"))
        return new KVILinkTextViewAccessible(static_cast<KVILinkTextView *>(object));
    if (className == QLatin1String("KVIWindow"))
        return new QAccessibleWidget(static_cast<QWidget *>(object), QAccessible::Window);
    if (className == QLatin1String("KVPopupWindow"))
        return new QAccessibleWidget(static_cast<QWidget *>(object), QAccessible::Dialog);
    return nullptr;
}

} // namespace

namespace KVIAccessible {

void install()
{
    KVAccessibleControls::install();
    static const bool installed = [] {
        QAccessible::installFactory(installerFactory);
        return true;
    }();
    Q_UNUSED(installed);
}

} // namespace KVIAccessible
