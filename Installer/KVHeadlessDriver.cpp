#include "Installer/KVHeadlessDriver.h"

#include "App/Model/KVErrorClass.h"
#include "App/Model/KVNetworkHelper.h"
#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVNotificationCenter.h"
#include "Core/Logging/KVLog.h"
#include "Installer/KVCommandLine.h"
#include "Installer/KVLogSetup.h"
#include "Platform/KVBundle.h"
#include "Platform/KVPropertyList.h"
#include "Platform/KVUserDefaults.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>

#include <algorithm>
#include <cmath>
#include <unistd.h>

namespace {
const QString kClassName = QStringLiteral("KVHeadlessDriver");
constexpr int kBarWidth = 30;
constexpr int kPlainLineStep = 10; // percent between two plain progress lines

// The version of a release section: the last "_"-part of its name.
QString releaseVersion(const KVINISection &section)
{
    return section.name().section(QLatin1Char('_'), -1);
}

// The window stores this date at the end of every update run, failed or not; the companion
// application receives it at the hand-over.
void recordUpdateDate()
{
    KVUserDefaults::standardUserDefaults().setObject(QStringLiteral("InstallerUpdateDate"),
                                                     QDateTime::currentDateTimeUtc());
}

// The launch-time work of the installer that does not concern its window: logging, the launch
// log lines, the registered defaults and the launch date.
void prepareLaunch(const QStringList &arguments)
{
    KVUserDefaults &defaults = KVUserDefaults::standardUserDefaults();
    const KVBundle bundle = KVBundle::mainBundle();
    KVLogSetup::setupCocoaLumberjack(defaults, {});
    KVLogError("%@ Nestora installer will finish launching with version:%@", QStringLiteral("Keldran"),
               bundle.bundleVersion());
    KVLogError("%@ start parameters %@", kClassName, arguments);

    const QString defaultsPath = bundle.pathForResource(QStringLiteral("VexaUserDefaults"), QStringLiteral("plist"));
    if (!defaultsPath.isEmpty())
        defaults.registerDefaults(KVPropertyList::readDictionary(defaultsPath));
    defaults.synchronize();
    defaults.setObject(QStringLiteral("InstallerLastLaunchDate"), QDateTime::currentDateTimeUtc());
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
        return Failed;
    prepareLaunch(arguments);
    KVHeadlessDriver driver(KVUpdateHelper::sharedInstance(), &output, &errors, ::isatty(STDOUT_FILENO) == 1);
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
{}

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
    m_engine.setHost(std::move(host));

    say(QStringLiteral("Nestora installer %1: checking for updates at %2")
            .arg(KVBundle::mainBundle().bundleVersion(), KVPrintableURL(m_engine.updateURL())));
    waitForNetwork();
}

void KVHeadlessDriver::waitForNetwork()
{
    if (KVNetworkHelper::sharedInstance().isReachable()) {
        checkInstaller();
        return;
    }
    say(QStringLiteral("Waiting for a network connection"));
    KVNotificationCenter &center = KVNotificationCenter::defaultCenter();
    center.addObserver(this, KVNetworkReachableNotification, [this](const KVNotification &) {
        KVNotificationCenter::defaultCenter().removeObserver(this, KVNetworkReachableNotification);
        m_networkDeadline.stop();
        checkInstaller();
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

void KVHeadlessDriver::checkInstaller()
{
    m_engine.checkInstallerUpdateWithcompletionHandler([this](const KVINISectionPtr &section, const KVError &error) {
        if (error)
            fail(error, QStringLiteral("installer check"));
        else if (section)
            updateInstaller(section);
        else
            checkDeliverables();
    });
}

void KVHeadlessDriver::updateInstaller(const KVINISectionPtr &section)
{
    say(QStringLiteral("Updating the installer to %1").arg(releaseVersion(*section)));
    m_engine.updateInstaller(section, showProgress(), [this](const QVariantMap &, const KVError &error) {
        runDidComplete(error, QStringLiteral("self-update"),
                       QStringLiteral("The installer is up to date; relaunching it"));
    });
}

void KVHeadlessDriver::checkDeliverables()
{
    m_engine.checkUpdateWithcompletionHandler([this](const QList<KVINISectionPtr> &sections, const KVError &error) {
        if (error)
            fail(error, QStringLiteral("update check"));
        else if (sections.isEmpty())
            m_handOverText = QStringLiteral("Everything is up to date; starting Nestora");
        else
            updateSections(sections);
    });
}

void KVHeadlessDriver::updateSections(const QList<KVINISectionPtr> &sections)
{
    QStringList names;
    for (const KVINISectionPtr &section : sections)
        names << section->name();
    say(QStringLiteral("The licence agreement is accepted; installing %1").arg(names.join(QStringLiteral(", "))));
    m_engine.updateWithSections(sections, showProgress(), [this](const QVariantMap &, const KVError &error) {
        runDidComplete(error, QStringLiteral("update"), QStringLiteral("Update complete; starting Nestora"));
    });
}

KVProgressHandler KVHeadlessDriver::showProgress()
{
    // The last report of a failed run carries the error instead of a message; the completion tells it.
    return [this](float fraction, const std::optional<QVariantMap> &info) {
        m_progress.setProgress(fraction, info ? info->value(QStringLiteral("message")).toString() : QString());
    };
}

void KVHeadlessDriver::runDidComplete(const KVError &error, const QString &step, const QString &handOverText)
{
    m_progress.finish();
    recordUpdateDate();
    if (error)
        fail(error, step);
    else
        m_handOverText = handOverText;
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
