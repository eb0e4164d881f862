#include "Installer/KVHeadlessDriver.h"

#include "App/Model/KVErrorClass.h"
#include "App/Model/KVNetworkHelper.h"
#include "App/Model/KVProxyAuthentication.h"
#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVNotificationCenter.h"
#include "Core/Logging/KVLog.h"
#include "Installer/KVCommandLine.h"
#include "Installer/KVInstallerStartup.h"
#include "Platform/KVBundle.h"
#include "Platform/KVTerminalPassword.h"

#include <QCoreApplication>
#include <QFile>

#include <algorithm>
#include <cmath>
#include <unistd.h>

namespace {
const QString kClassName = QStringLiteral("KVHeadlessDriver");
constexpr int kBarWidth = 30;
constexpr int kPlainLineStep = 10; // percent between two plain progress lines

// A proxy that asks is given the user named on the command line, with the password from
// NESTORA_PROXY_PASSWORD or typed on the terminal, for the rest of the run.
KVProxyAuthentication::Asker proxyCredentialsOf(const QString &user)
{
    return [user](const QString &proxyName) -> std::optional<KVProxyAuthentication::Answer> {
        if (qEnvironmentVariableIsSet("NESTORA_PROXY_PASSWORD"))
            return KVProxyAuthentication::Answer{{user, qEnvironmentVariable("NESTORA_PROXY_PASSWORD")}, true};
        const std::optional<QByteArray> typed =
            KVTerminalPassword::read(QStringLiteral("Password of %1 for the proxy %2: ").arg(user, proxyName));
        if (!typed)
            return std::nullopt;
        return KVProxyAuthentication::Answer{{user, QString::fromLocal8Bit(*typed)}, true};
    };
}
} // namespace

// ---- KVTerminalProgressBar ------------------------------------------------------------------

KVTerminalProgressBar::KVTerminalProgressBar(QIODevice *output, bool interactive)
    : m_output(output)
    , m_interactive(interactive)
{}

void KVTerminalProgressBar::setProgress(float fraction, const QString &message)
{
    const double shown = std::isnan(fraction) ? 0.0 : std::clamp(double(fraction), 0.0, 1.0);
    const int percent = int(std::floor(shown * 100.0));
    const bool newMessage = !message.isEmpty() && message != m_shownMessage;
    if (!message.isEmpty())
        m_shownMessage = message;

    if (m_interactive) {
        if (!newMessage && percent == m_shownPercent)
            return;
        // Back to the start of the line, the new text, and away with what is left of a longer one.
        m_output << '\r' << line(percent, m_shownMessage) << "\x1b[K";
        m_lineOpen = true;
    } else {
        const bool nextStep = !m_shownPercent || percent / kPlainLineStep != *m_shownPercent / kPlainLineStep;
        if (!newMessage && !nextStep)
            return;
        m_output << line(percent, m_shownMessage) << '\n';
    }
    m_shownPercent = percent;
    m_output.flush();
}

void KVTerminalProgressBar::finish()
{
    if (m_lineOpen) {
        m_output << '\n';
        m_output.flush();
    }
    m_lineOpen = false;
    m_shownPercent.reset();
    m_shownMessage.clear();
}

QString KVTerminalProgressBar::line(int percent, const QString &message) const
{
    const int filled = percent * kBarWidth / 100;
    return QStringLiteral("[%1%2] %3%  %4")
        .arg(QString(filled, QLatin1Char('#')), QString(kBarWidth - filled, QLatin1Char('-')))
        .arg(percent, 3)
        .arg(message);
}

// ---- KVHeadlessDriver -----------------------------------------------------------------------

int KVHeadlessDriver::exec(const QStringList &arguments)
{
    QFile output;
    QFile errors;
    if (!output.open(stdout, QIODevice::WriteOnly | QIODevice::Unbuffered) ||
        !errors.open(stderr, QIODevice::WriteOnly | QIODevice::Unbuffered))
        return KVErrorExitStatus(KVErrorClass::Failed);
    KVInstallerStartup::beginLaunching(kClassName, arguments);
    const QString proxyUser = KVCommandLine::parse(arguments).proxyUser();
    if (!proxyUser.isEmpty())
        KVProxyAuthentication::setAsker(proxyCredentialsOf(proxyUser));
    KVHeadlessDriver driver(KVUpdateHelper::sharedInstance(), &output, &errors, ::isatty(STDOUT_FILENO) == 1);
    driver.m_proxyUser = proxyUser;
    QObject::connect(&driver, &KVHeadlessDriver::finished, QCoreApplication::instance(), &QCoreApplication::exit);
    driver.start();
    const int status = QCoreApplication::exec();
    KVUpdateHelper::sharedInstance().stopWorkForExit(status); // while the driver can still hear the engine
    return status;
}

int KVHeadlessDriver::refuseSecondInstance()
{
    QTextStream(stderr) << KVBundle::kInstallerName << ": another Nestora installer is already running\n";
    return AnotherInstanceRuns;
}

KVHeadlessDriver::KVHeadlessDriver(KVUpdateHelper &engine, QIODevice *output, QIODevice *errors, bool interactive)
    : m_engine(engine)
    , m_progress(output, interactive)
    , m_output(output)
    , m_errors(errors)
    , m_sequence(engine)
{
    connectSequence();
}

void KVHeadlessDriver::start()
{
    KVUpdateHost host;
    // The engine ends the installer only after it has handed over, to the companion application
    // or to the relaunched installer; failures end it from here.
    host.terminate = [this] {
        say(m_handOverText);
        finish(Succeeded);
    };
    host.launchDidFail = [this](const KVError &error) { fail(error, QStringLiteral("launch")); };
    host.relaunchArguments = {KVCommandLine::kHeadlessOption, KVCommandLine::kAcceptLicenseOption};
    if (!m_proxyUser.isEmpty())
        host.relaunchArguments << KVCommandLine::kProxyUserOption << m_proxyUser;
    KVInstallerStartup::finishLaunching(std::move(host));

    say(QStringLiteral("Nestora installer %1: checking for updates at %2")
            .arg(KVBundle::mainBundle().bundleVersion(), KVPrintableURL(m_engine.updateURL())));
    waitForNetwork();
}

void KVHeadlessDriver::waitForNetwork()
{
    if (KVNetworkHelper::sharedInstance().isReachable()) {
        m_sequence.checkInstaller();
        return;
    }
    say(QStringLiteral("Waiting for a network connection"));
    KVNotificationCenter &center = KVNotificationCenter::defaultCenter();
    center.addObserver(this, KVNetworkReachableNotification, [this](const KVNotification &) {
        KVNotificationCenter::defaultCenter().removeObserver(this, KVNetworkReachableNotification);
        m_networkDeadline.stop();
        m_sequence.checkInstaller();
    });
    m_networkDeadline.setSingleShot(true);
    connect(&m_networkDeadline, &QTimer::timeout, this, [this] {
        KVNotificationCenter::defaultCenter().removeObserver(this, KVNetworkReachableNotification);
        fail(KVError(KVURLErrorDomain, KVURLErrorNotConnectedToInternet,
                     {{KVLocalizedDescriptionKey, QStringLiteral("no network connection")}}),
             QStringLiteral("network check"));
    });
    m_networkDeadline.start(KVUpdateHelper::networkTimeout());
}

void KVHeadlessDriver::connectSequence()
{
    connect(&m_sequence, &KVLaunchSequence::checkFailed, this, &KVHeadlessDriver::fail);
    connect(&m_sequence, &KVLaunchSequence::installerUpdateStarted, this, [this](const KVINISectionPtr &section) {
        say(QStringLiteral("Updating the installer to %1").arg(section->releaseVersion()));
    });
    // The licence was accepted on the command line.
    connect(&m_sequence, &KVLaunchSequence::licenceRequired, this, [this](const QList<KVINISectionPtr> &sections) {
        QStringList names;
        for (const KVINISectionPtr &section : sections)
            names << section->name();
        say(QStringLiteral("The licence agreement is accepted; installing %1").arg(names.join(QStringLiteral(", "))));
        m_sequence.updateDeliverables();
    });
    connect(&m_sequence, &KVLaunchSequence::nothingDue, this,
            [this] { m_handOverText = QStringLiteral("Everything is up to date; starting Nestora"); });
    // The last report of a failed run carries the error instead of a message; the end of the run tells it.
    connect(&m_sequence, &KVLaunchSequence::runProgressed, this,
            [this](KVLaunchSequence::Run, float fraction, const std::optional<QVariantMap> &info) {
                m_progress.setProgress(fraction, info ? info->value(QStringLiteral("message")).toString() : QString());
            });
    connect(&m_sequence, &KVLaunchSequence::runFinished, this, &KVHeadlessDriver::runDidFinish);
}

void KVHeadlessDriver::runDidFinish(KVLaunchSequence::Run run, const KVError &error)
{
    m_progress.finish();
    const bool selfUpdate = run == KVLaunchSequence::Run::Installer;
    if (error)
        fail(error, selfUpdate ? QStringLiteral("self-update") : QStringLiteral("update"));
    else
        m_handOverText = selfUpdate ? QStringLiteral("The installer is up to date; relaunching it")
                                    : QStringLiteral("Update complete; starting Nestora");
}

void KVHeadlessDriver::fail(const KVError &error, const QString &step)
{
    KVLogError("%@ %@ failed: %@", kClassName, step, error);
    complain(KVErrorText(error));
    finish(KVErrorExitStatus(KVErrorClassOf(error)));
}

void KVHeadlessDriver::complain(const QString &text)
{
    m_progress.finish();
    m_errors << KVBundle::kInstallerName << ": " << text << '\n';
    m_errors.flush();
}

void KVHeadlessDriver::finish(int status)
{
    if (m_finished)
        return;
    m_finished = true;
    Q_EMIT finished(status);
}

void KVHeadlessDriver::say(const QString &text)
{
    m_progress.finish();
    m_output << text << '\n';
    m_output.flush();
}
