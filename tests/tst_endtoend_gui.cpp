// The installer window end to end, as a keyboard and screen-reader user meets it: a copy of the
// built installer runs on an X server of its own (Xvfb) and a session bus of its own with the
// accessibility registry, against a real nginx serving a published manifest and real archives. The
// test reads the licence screen's accessibility tree as a screen reader does (pyatspi), ticks the
// box and presses Continue with key strokes alone (xdotool), then checks what was deployed, the
// update history and the hand-over to the companion application.

#include "Core/View/KVIFont.h"
#include "KVTestCompanion.h"
#include "KVTestFiles.h"
#include "KVTestInstallation.h"
#include "KVTestInstaller.h"
#include "KVTestProcess.h"
#include "KVTestSandbox.h"
#include "KVTestUpdateServer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>

#include <memory>

#include <signal.h>
#include <unistd.h>

using namespace KVTestInstallation;

namespace {

const QString kFont = QStringLiteral("Inter");

// A node of an accessibility tree as tests/data/atspi-tree.py prints it, and every node below it.
QList<QJsonObject> nodesOf(const QJsonObject &node)
{
    QList<QJsonObject> nodes{node};
    for (const QJsonValue &child : node.value(QStringLiteral("children")).toArray())
        nodes += nodesOf(child.toObject());
    return nodes;
}

// The first node of that role whose name starts so, or an empty object.
QJsonObject findNode(const QJsonObject &tree, const QString &role, const QString &namePrefix = {})
{
    for (const QJsonObject &node : nodesOf(tree)) {
        if (node.value(QStringLiteral("role")).toString() == role &&
            node.value(QStringLiteral("name")).toString().startsWith(namePrefix))
            return node;
    }
    return {};
}

bool hasState(const QJsonObject &node, const QString &state)
{
    return node.value(QStringLiteral("states")).toArray().contains(state);
}

// A helper program of the test's own that tells on its first line of output where to reach it
// (an X server its display, a bus its address), and is stopped with whatever it started when this
// goes: it runs in a session of its own, and the whole session is signalled.
class KVTestDaemon
{
public:
    ~KVTestDaemon()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        ::kill(-pid_t(m_process.processId()), SIGTERM);
        if (!m_process.waitForFinished(5000)) {
            ::kill(-pid_t(m_process.processId()), SIGKILL);
            m_process.waitForFinished();
        }
    }

    [[nodiscard]] bool start(const QString &program, const QStringList &arguments)
    {
        m_process.setChildProcessModifier([] { ::setsid(); });
        m_process.start(program, arguments);
        if (!m_process.waitForStarted())
            return false;
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(10000))
                return false;
        }
        m_firstLine = QString::fromLatin1(m_process.readLine().trimmed());
        return true;
    }

    QString firstLine() const { return m_firstLine; }

private:
    QProcess m_process;
    QString m_firstLine;
};

} // namespace

class GuiEndToEndTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void installsWithTheKeyboardAlone();

private:
    QProcessEnvironment displayEnvironment() const;
    std::optional<QByteArray> onDisplay(const QString &program, const QStringList &arguments) const;
    // The installer's accessibility tree once a node of that role shows, or an empty object.
    QJsonObject accessibilityTree(qint64 pid, const QString &role) const;
    [[nodiscard]] bool keys(const QStringList &keys) const;

    std::unique_ptr<KVTestDaemon> m_xvfb;
    std::unique_ptr<KVTestDaemon> m_bus;
    std::unique_ptr<KVTestCompanion> m_companion;
};

void GuiEndToEndTest::initTestCase()
{
    for (const char *tool : {"Xvfb", "xdotool", "dbus-daemon", "/usr/libexec/at-spi-bus-launcher"}) {
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            QSKIP(qPrintable(QStringLiteral("%1 is not installed (tools/install-deps.sh installs it)").arg(tool)));
    }
    KVIFont::setFamilyOverride(kFont);
    // Xvfb picks a free display and writes its number to the descriptor given.
    m_xvfb = std::make_unique<KVTestDaemon>();
    QVERIFY(
        m_xvfb->start(QStringLiteral("Xvfb"), {"-displayfd", "1", "-screen", "0", "1280x800x24", "-nolisten", "tcp"}));
    // A session bus with the accessibility bus and registry it starts on demand: what a desktop
    // session offers a screen reader, kept apart from any real one.
    m_bus = std::make_unique<KVTestDaemon>();
    QVERIFY(m_bus->start(QStringLiteral("dbus-daemon"), {"--session", "--nofork", "--print-address=1"}));
    m_companion = std::make_unique<KVTestCompanion>();
}

QProcessEnvironment GuiEndToEndTest::displayEnvironment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DISPLAY"), ':' + m_xvfb->firstLine());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    environment.insert(QStringLiteral("NESTORA_UI_FONT"), kFont);
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), m_bus->firstLine());
    // Qt offers its accessibility tree only while a screen reader runs, unless told to always.
    environment.insert(QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON"), QStringLiteral("1"));
    return environment;
}

std::optional<QByteArray> GuiEndToEndTest::onDisplay(const QString &program, const QStringList &arguments) const
{
    const KVTestProcess::Outcome outcome =
        KVTestProcess::run(QStringList{program} + arguments, 30000, {}, displayEnvironment());
    return outcome.succeeded() ? std::optional(outcome.output.toUtf8()) : std::nullopt;
}

QJsonObject GuiEndToEndTest::accessibilityTree(qint64 pid, const QString &role) const
{
    const std::optional<QByteArray> tree =
        onDisplay(QStringLiteral("/usr/bin/python3"),
                  {QStringLiteral(NESTORA_TEST_DATA_DIR "/atspi-tree.py"), QString::number(pid), "20", role});
    return tree ? QJsonDocument::fromJson(*tree).object() : QJsonObject();
}

bool GuiEndToEndTest::keys(const QStringList &keys) const
{
    return onDisplay(QStringLiteral("xdotool"), QStringList{"key", "--delay", "150"} + keys).has_value();
}

void GuiEndToEndTest::installsWithTheKeyboardAlone()
{
    auto server = std::make_unique<KVTestUpdateServer>();
    QVERIFY(server->addNestoraRelease());
    QString failure;
    QVERIFY2(server->start(&failure), qPrintable(failure));
    // The devices file is published only once the run has failed for want of it.
    const QString devices = server->servedPath(KVTestUpdateServer::deviceXMLFile);
    QVERIFY(QFile::rename(devices, devices + QStringLiteral(".unpublished")));
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
    const QString window = QString::fromLatin1(windows->split('\n').first());

    // The licence step as a screen reader finds it.
    const QJsonObject licence = accessibilityTree(process.processId(), QStringLiteral("check-box"));
    QVERIFY2(!licence.isEmpty(), "no accessibility tree with a check box");
    const QByteArray dump = QJsonDocument(licence).toJson(QJsonDocument::Compact);
    QVERIFY2(!findNode(licence, "frame", "Nestora Installer").isEmpty(), dump.constData());
    const QJsonObject box = findNode(licence, "check-box", "I have read and accept the Terms and Conditions");
    // A check box is checkable by its role (Qt 6.4's bridge sends no separate "checkable" state).
    QVERIFY2(!box.isEmpty() && !hasState(box, "checked") && hasState(box, "focused"), dump.constData());
    const QJsonObject continueButton = findNode(licence, "push-button", "Continue");
    QVERIFY2(!continueButton.isEmpty() && !hasState(continueButton, "enabled"), dump.constData());
    for (const char *link : {"Terms and Conditions", "Privacy Policy", "End User License Agreement"})
        QVERIFY2(hasState(findNode(licence, "link", link), "focusable"), link);
    for (const char *button : {"Cancel", "Minimize", "Close"})
        QVERIFY2(!findNode(licence, "push-button", button).isEmpty(), button);
    QVERIFY2(!findNode(licence, "status-bar").isEmpty(), dump.constData());

    // The keyboard alone: Space ticks the focused box, which the screen reader hears; Tab walks the
    // three links and Cancel to Continue, and Return presses it.
    QVERIFY(onDisplay(QStringLiteral("xdotool"), {"windowfocus", "--sync", window}));
    QVERIFY(keys({"space"}));
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            const QJsonObject ticked = accessibilityTree(process.processId(), QStringLiteral("check-box"));
            return hasState(findNode(ticked, "check-box", "I have read"), "checked") &&
                   hasState(findNode(ticked, "push-button", "Continue"), "enabled");
        }(),
        20000);
    QVERIFY(keys({"Tab", "Tab", "Tab", "Tab", "Tab", "Return"}));

    // The 404 fails the run; Try Again, focused, repeats it in the same process once the file is there.
    QTRY_VERIFY_WITH_TIMEOUT(hasState(findNode(accessibilityTree(process.processId(), QStringLiteral("push-button")),
                                               "push-button", "Try Again"),
                                      "focused"),
                             60000);
    QVERIFY(QFile::rename(devices + QStringLiteral(".unpublished"), devices));
    QVERIFY(keys({"Return"}));

    QVERIFY2(process.waitForFinished(180000), "the installer did not finish");
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);

    // What a run deploys is checked in detail headless; here, that the window's run deployed it all.
    QCOMPARE(KVTestFiles::readFile(applicationPath() + QLatin1Char('/') + KVTestUpdateServer::releaseMarker).trimmed(),
             KVTestUpdateServer::releaseApplication.toUtf8());
    QCOMPARE(history(), QVariantMap({{QStringLiteral("Device_XML"), KVTestUpdateServer::releaseDeviceXML},
                                     {QStringLiteral("Device_Icon"), KVTestUpdateServer::releaseDeviceIcons},
                                     {QStringLiteral("Smart_Cards"), KVTestUpdateServer::releaseSmartCards}}));

    // The hand-over: the window's bottom-left corner (placed top right on the screen), the launch
    // date and the update date the screen stored at the end of the run. nginx and the
    // accessibility bus run from the sandbox and would count as launches under way, so they stop first.
    server.reset();
    m_bus.reset();
    const std::optional<QList<KVTestCompanion::Start>> starts = m_companion->settledStarts();
    QVERIFY(starts);
    QCOMPARE(starts->size(), 1);
    // The window stood in the screen's right half; the dates are those of a run that updated.
    const QStringList arguments = starts->first().arguments;
    QVERIFY2(arguments.size() == 7 && arguments.at(1).toDouble() > 640 && arguments.at(2).toDouble() > 0 &&
                 arguments.at(4).toDouble() > 1.6e9 && arguments.at(6).toDouble() >= arguments.at(4).toDouble(),
             qPrintable(arguments.join(' ')));
}

NESTORA_TEST_MAIN(GuiEndToEndTest)
#include "tst_endtoend_gui.moc"
