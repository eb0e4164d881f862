// The installer window end to end, as a user meets it: a copy of the built installer runs on an X
// server of its own (Xvfb) against a real nginx serving a published manifest and real archives;
// the test ticks the licence box and presses Continue with real pointer clicks (xdotool), then
// checks what was deployed, the update history and the hand-over to the companion application.

#include "App/Model/KVUpdateEngine.h"
#include "Core/View/KVButton.h"
#include "Core/View/KVCheckBox.h"
#include "Core/View/KVIFont.h"
#include "Installer/Controllers/KVIViewController.h"
#include "Installer/KVIView.h"
#include "KVTestCompanion.h"
#include "KVTestFiles.h"
#include "KVTestInstallation.h"
#include "KVTestInstaller.h"
#include "KVTestSandbox.h"
#include "KVTestUpdateServer.h"

#include <QImage>
#include <QProcess>
#include <QStandardPaths>

#include <memory>

using namespace KVTestInstallation;

namespace {

const QString kFont = QStringLiteral("Inter");
constexpr QSize kScreenSize(1280, 800);

// An engine that is never asked anything: the screen below only lays out its licence step.
class KVIdleEngine : public KVUpdateEngine
{
public:
    void checkInstallerUpdateWithcompletionHandler(std::function<void(KVINISectionPtr, KVError)>) override {}
    void updateInstaller(const KVINISectionPtr &, KVProgressHandler, KVUpdateCompletionHandler) override {}
    void checkUpdateWithcompletionHandler(std::function<void(QList<KVINISectionPtr>, KVError)>) override {}
    void updateWithSections(const QList<KVINISectionPtr> &, KVProgressHandler, KVUpdateCompletionHandler) override {}
};

// Where the licence step puts the check box and Continue, in window coordinates: the same screen,
// laid out here with the same font as the installer under test.
struct LicenceLayout
{
    QRect checkbox;
    QRect continueButton;
};

LicenceLayout licenceLayout()
{
    KVIdleEngine engine;
    auto *controller = new KVIViewController(engine, nullptr,
                                             {.startNetworkMonitor = [] {}, .openURL = {}, .terminateApplication = {}});
    const std::unique_ptr<KVIView> view(controller->view());
    controller->showEULA();
    return {controller->licenseAgreementCheckbox()->geometry(), controller->continueButton()->geometry()};
}

// An X server of the test's own on a display it picks, stopped when this goes.
class KVXvfb
{
public:
    ~KVXvfb()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.terminate();
            if (!m_process.waitForFinished(5000)) {
                m_process.kill();
                m_process.waitForFinished();
            }
        }
    }

    [[nodiscard]] bool start()
    {
        // Xvfb picks a free display and writes its number to the descriptor given.
        m_process.start(QStringLiteral("Xvfb"),
                        {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
                         QStringLiteral("0"),
                         QStringLiteral("%1x%2x24").arg(kScreenSize.width()).arg(kScreenSize.height()),
                         QStringLiteral("-nolisten"), QStringLiteral("tcp")});
        if (!m_process.waitForStarted())
            return false;
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(10000))
                return false;
        }
        m_display = QStringLiteral(":") + QString::fromLatin1(m_process.readLine().trimmed());
        return true;
    }

    QString display() const { return m_display; }

private:
    QProcess m_process;
    QString m_display;
};

} // namespace

class GuiEndToEndTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void installsThroughTheWindow();

private:
    QProcessEnvironment displayEnvironment() const;
    std::optional<QByteArray> onDisplay(const QString &program, const QStringList &arguments) const;
    QImage windowImage() const;
    [[nodiscard]] bool click(QPoint point) const;

    std::unique_ptr<KVXvfb> m_xvfb;
    std::unique_ptr<KVTestCompanion> m_companion;
    QString m_window;
};

void GuiEndToEndTest::initTestCase()
{
    for (const char *tool : {"Xvfb", "xdotool", "import"}) {
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            QSKIP(qPrintable(QStringLiteral("%1 is not installed (tools/install-deps.sh installs it)").arg(tool)));
    }
    KVIFont::setFamilyOverride(kFont);
    m_xvfb = std::make_unique<KVXvfb>();
    QVERIFY(m_xvfb->start());
    m_companion = std::make_unique<KVTestCompanion>();
}

void GuiEndToEndTest::cleanupTestCase()
{
    m_companion.reset();
    m_xvfb.reset();
}

QProcessEnvironment GuiEndToEndTest::displayEnvironment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DISPLAY"), m_xvfb->display());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    environment.insert(QStringLiteral("NESTORA_UI_FONT"), kFont);
    return environment;
}

std::optional<QByteArray> GuiEndToEndTest::onDisplay(const QString &program, const QStringList &arguments) const
{
    QProcess process;
    process.setProcessEnvironment(displayEnvironment());
    process.start(program, arguments);
    if (!process.waitForFinished(30000) || process.exitCode() != 0)
        return std::nullopt;
    return process.readAllStandardOutput();
}

QImage GuiEndToEndTest::windowImage() const
{
    const std::optional<QByteArray> png = onDisplay(QStringLiteral("import"), {"-window", m_window, "png:-"});
    return png ? QImage::fromData(*png, "PNG") : QImage();
}

bool GuiEndToEndTest::click(QPoint point) const
{
    return onDisplay(QStringLiteral("xdotool"), {"mousemove", "--window", m_window, QString::number(point.x()),
                                                 QString::number(point.y()), "click", "1"})
        .has_value();
}

void GuiEndToEndTest::installsThroughTheWindow()
{
    auto server = std::make_unique<KVTestUpdateServer>();
    QVERIFY(server->addNestoraRelease());
    QString failure;
    QVERIFY2(server->start(&failure), qPrintable(failure));
    QVERIFY(server->writeTestServerFile());
    KVTestInstaller installer;
    QVERIFY(installer.install());

    QProcess process;
    process.setProcessEnvironment(displayEnvironment());
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(installer.executablePath(), {});
    QVERIFY(process.waitForStarted());
    auto stopInstaller = qScopeGuard([&process] {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
        }
    });

    const std::optional<QByteArray> windows =
        onDisplay(QStringLiteral("timeout"), {"30", "xdotool", "search", "--sync", "--onlyvisible", "--pid",
                                              QString::number(process.processId())});
    QVERIFY2(windows, "the installer window did not appear");
    m_window = QString::fromLatin1(windows->split('\n').first());

    // The licence step is up once the check box's border shows; ticked, the box fills.
    const LicenceLayout layout = licenceLayout();
    const QPoint boxEdge(layout.checkbox.left() + 1, layout.checkbox.center().y());
    QTRY_VERIFY_WITH_TIMEOUT(windowImage().pixelColor(boxEdge) != QColor(Qt::white), 60000);
    const QColor unticked = windowImage().pixelColor(layout.checkbox.center());
    QVERIFY(click(layout.checkbox.center()));
    QTRY_VERIFY(windowImage().pixelColor(layout.checkbox.center()) != unticked);
    QVERIFY(click(layout.continueButton.center()));

    QVERIFY2(process.waitForFinished(180000), "the installer did not finish");
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);

    QVERIFY(QFileInfo::exists(applicationPath() + QStringLiteral("/Contents/Info.plist")));
    QCOMPARE(KVTestFiles::readFile(applicationPath() + QLatin1Char('/') + KVTestUpdateServer::releaseMarker).trimmed(),
             KVTestUpdateServer::releaseApplication.toUtf8());
    QCOMPARE(KVTestFiles::readFile(devicesDataPath()), KVTestUpdateServer::releaseDevicesXMLText.toBase64());
    QCOMPARE(KVTestFiles::readFile(smartCardsPath()), KVTestUpdateServer::releaseSmartCardsText);
    for (auto icon = KVTestUpdateServer::releaseIcons.cbegin(); icon != KVTestUpdateServer::releaseIcons.cend(); ++icon)
        QCOMPARE(KVTestFiles::readFile(deviceIconsPath() + QLatin1Char('/') + icon.key()), icon.value());
    QCOMPARE(history(), QVariantMap({{QStringLiteral("Device_XML"), KVTestUpdateServer::releaseDeviceXML},
                                     {QStringLiteral("Device_Icon"), KVTestUpdateServer::releaseDeviceIcons},
                                     {QStringLiteral("Smart_Cards"), KVTestUpdateServer::releaseSmartCards}}));

    // The hand-over: the window's bottom-left corner (placed top right on the screen), the launch
    // date and the update date the screen stored at the end of the run. nginx runs from the
    // sandbox and would count as a launch under way, so it stops first.
    server.reset();
    const std::optional<QList<KVTestCompanion::Start>> starts = m_companion->settledStarts();
    QVERIFY(starts);
    QCOMPARE(starts->size(), 1);
    const QStringList arguments = starts->first().arguments;
    const QSize window = KVIViewController::viewSize;
    QCOMPARE(arguments.mid(0, 4),
             QStringList({"-KVWindowOrigin", QString::number(kScreenSize.width() - window.width() - 24),
                          QString::number(kScreenSize.height() - window.height() - 24), "-InstallerLaunchDate"}));
    QVERIFY2(arguments.value(4).toDouble() > 1.6e9, qPrintable(arguments.join(' ')));
    QCOMPARE(arguments.size(), 7);
    QCOMPARE(arguments.at(5), QStringLiteral("-InstallerUpdatedDate"));
    QVERIFY(arguments.at(6).toDouble() >= arguments.at(4).toDouble());
    m_companion->stopAll();
}

NESTORA_TEST_MAIN(GuiEndToEndTest)
#include "tst_endtoend_gui.moc"
