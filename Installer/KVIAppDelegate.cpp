#include "Installer/KVIAppDelegate.h"

#include "Core/Extensions/KVLocalizedString.h"
#include "Core/Extensions/KVWindowPlacement.h"
#include "Core/Logging/KVLog.h"
#include "Installer/KVIView.h"
#include "Installer/KVIWindow.h"
#include "Installer/KVInstallerStartup.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QScreen>

namespace {
const QString kClassName = QStringLiteral("KVIAppDelegate");
// The size the installer's screen (KVIViewController) is drawn for.
constexpr QSize kWindowSize(440, 220);

// Linux has no global menu bar; a desktop panel along the top of the screen takes its place.
KVIAppDelegate::ScreenMetrics primaryScreenMetrics()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen)
        return {};
    return {QSizeF(screen->geometry().size()), double(screen->availableGeometry().top() - screen->geometry().top())};
}
} // namespace

KVIAppDelegate::KVIAppDelegate(QObject *parent)
    : QObject(parent)
    , m_window(new KVIWindow)
    , m_screenMetrics(&primaryScreenMetrics)
{
    m_window->resize(kWindowSize);
    // The name the desktop and screen readers know the window by.
    m_window->setWindowTitle(KVLocalizedString(QStringLiteral("IDS_WINDOW_TITLE")));
}

KVIAppDelegate::~KVIAppDelegate()
{
    delete m_window;
}

void KVIAppDelegate::applicationWillFinishLaunching(const QStringList &arguments)
{
    KVInstallerStartup::beginLaunching(kClassName, arguments);

    const KVWindowPlacement::OriginScan scan = KVWindowPlacement::scanWindowOrigins(arguments);
    for (const QPointF &origin : scan.origins) {
        KVLogError("%@ location: %@", kClassName, arguments);
        m_window->setFrameOrigin(origin);
    }
    if (scan.missingValue)
        KVLogError("%@ -KVWindowOrigin without its two values in %@", kClassName, arguments);
    if (scan.origins.isEmpty())
        placeWindowTopRight();
}

void KVIAppDelegate::applicationDidFinishLaunching()
{
    QPointer<KVIWindow> window = m_window;
    KVInstallerStartup::finishLaunching({
        .windowOrigin = [window] { return window ? window->frameOrigin() : QPointF(); },
        .windowSize = [window] { return window ? QSizeF(window->frameGeometry().size()) : QSizeF(); },
        .screenSize = [this] { return m_screenMetrics().screenSize; },
        .menuBarHeight = [this] { return m_screenMetrics().menuBarHeight; },
        .terminate = [] { QCoreApplication::quit(); },
    });

    m_window->setFixedSize(m_window->size());
    m_viewController = m_contentFactory ? m_contentFactory(m_window) : new KVIView;
    m_window->setContentView(m_viewController);

    m_window->show();
    activate();
    placeWindowTopRight();
    // Linux desktops have no application menu whose items could carry "Hide", "Show" and "IDS_QUIT".
}

void KVIAppDelegate::activate()
{
    // A minimised window comes back as it was before.
    m_window->setWindowState(m_window->windowState() & ~Qt::WindowMinimized);
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void KVIAppDelegate::placeWindowTopRight()
{
    const ScreenMetrics metrics = m_screenMetrics();
    m_window->setFrameOrigin(KVWindowPlacement::topRightOrigin(
        metrics.screenSize, QSizeF(m_window->frameGeometry().size()), metrics.menuBarHeight));
}
