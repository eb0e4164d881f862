#include "Installer/KVCommandLine.h"

#include "App/Model/KVErrorClass.h"
#include "Installer/KVHeadlessDriver.h"
#include "Platform/KVBundle.h"

#include <QTextStream>

#include <cstdio>

namespace {
const QString kWindowOriginOption = QStringLiteral("-KVWindowOrigin");
const QString kHelpOption = QStringLiteral("--help");
const QString kVersionOption = QStringLiteral("--version");
constexpr int kWindowOriginValueCount = 2;
} // namespace

KVCommandLine KVCommandLine::parse(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    return parse(arguments);
}

KVCommandLine KVCommandLine::parse(const QStringList &arguments)
{
    KVCommandLine commandLine;
    bool licenseAccepted = false;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        if (argument == kHelpOption || argument == kVersionOption) {
            // Asked for on any command line, these win over everything else on it.
            commandLine.m_request = argument == kHelpOption ? Request::Help : Request::Version;
            return commandLine;
        }
        if (argument == kHeadlessOption)
            commandLine.m_headless = true;
        else if (argument == kAcceptLicenseOption)
            licenseAccepted = true;
        else if (argument == kProxyUserOption && i + 1 < arguments.size())
            commandLine.m_proxyUser = arguments.at(++i);
        else if (argument == kProxyUserOption && commandLine.m_usageError.isEmpty())
            commandLine.m_usageError = QStringLiteral("%1 needs a user name").arg(kProxyUserOption);
        else if (argument == kWindowOriginOption)
            i += kWindowOriginValueCount; // the relaunch after a self-update passes the window's place
        else if (commandLine.m_usageError.isEmpty())
            commandLine.m_usageError = QStringLiteral("unknown argument \"%1\"").arg(argument);
    }
    if (commandLine.m_usageError.isEmpty() && commandLine.m_headless && !licenseAccepted)
        commandLine.m_usageError = QStringLiteral("the end-user licence agreement must be accepted: read it and run "
                                                  "again with %1")
                                       .arg(kAcceptLicenseOption);
    if (!commandLine.m_usageError.isEmpty())
        commandLine.m_request = Request::UsageError;
    return commandLine;
}

int KVCommandLine::answer() const
{
    QTextStream output(stdout);
    QTextStream errors(stderr);
    switch (m_request) {
    case Request::Help:
        output << usageText();
        return KVHeadlessDriver::Succeeded;
    case Request::Version:
        if (const QString version = KVBundle::mainBundle().bundleVersion(); !version.isEmpty()) {
            output << version << '\n';
            return KVHeadlessDriver::Succeeded;
        }
        errors << KVBundle::kInstallerName << ": the installer's Info.plist holds no version\n";
        return KVErrorExitStatus(KVErrorClass::Failed); // the bundle holds no version
    case Request::UsageError:
        errors << KVBundle::kInstallerName << ": " << m_usageError << "\n\n" << usageText();
        return KVHeadlessDriver::UsageError;
    case Request::Run:
        break;
    }
    return KVHeadlessDriver::Succeeded;
}

QString KVCommandLine::usageText()
{
    return QStringLiteral("Usage: %1 [--headless --accept-license]\n"
                          "Updates the installer itself, then the Nestora application and its device data from the\n"
                          "update server, and starts Nestora when everything is up to date. Without options it shows\n"
                          "its window.\n"
                          "\n"
                          "  --headless        run without a window and show progress on the terminal\n"
                          "  --accept-license  accept the end-user licence agreement (required with --headless):\n"
                          "                    https://%2/legal-privacy/end-user-license-agreement/\n"
                          "  --proxy-user USER give a proxy that asks for credentials this user name (with\n"
                          "                    --headless); the password comes from NESTORA_PROXY_PASSWORD,\n"
                          "                    else it is asked for on the terminal\n"
                          "  --help            show this text\n"
                          "  --version         show the installer's version\n"
                          "\n"
                          "Exit status: 0 Nestora was started, 2 usage error or licence not accepted,\n"
                          "3 update server unreachable, 4 another installer is running; any other\n"
                          "status names the failure the message tells (see the README).\n")
        .arg(KVBundle::kInstallerName, QStringLiteral(NESTORA_VENDOR_SITE));
}
