#pragma once

#include "Installer/KVIWindow.h"

#include <QObject>
#include <QPointer>
#include <QSizeF>
#include <QStringList>
#include <functional>

// The start of the installer with its window: the shared start-up (KVInstallerStartup) around the
// window's placement from the "-KVWindowOrigin" arguments, and the window with its content.
class KVIAppDelegate : public QObject
{
    Q_OBJECT
public:
    // The main screen's full size and the menu bar's height; tests replace them.
    struct ScreenMetrics
    {
        QSizeF screenSize;
        double menuBarHeight = 0;
    };
    using ScreenMetricsProvider = std::function<ScreenMetrics()>;
    // Builds the window's content view; called once in did-finish-launching.
    using ContentFactory = std::function<QWidget *(KVIWindow *window)>;

    explicit KVIAppDelegate(QObject *parent = nullptr);
    ~KVIAppDelegate() override;

    void setScreenMetricsProvider(ScreenMetricsProvider provider) { m_screenMetrics = std::move(provider); }
    void setContentFactory(ContentFactory factory) { m_contentFactory = std::move(factory); }

    // Thread: main, in this order.
    void applicationWillFinishLaunching(const QStringList &arguments);
    void applicationDidFinishLaunching();
    void applicationWillTerminate() {}

    // Brings the window to the front (a second start asked for it).
    void activate();

    KVIWindow *window() const { return m_window; }
    QWidget *viewController() const { return m_viewController; }

private:
    void placeWindowTopRight();

    QPointer<KVIWindow> m_window;
    QPointer<QWidget> m_viewController;
    ScreenMetricsProvider m_screenMetrics;
    ContentFactory m_contentFactory;
};
