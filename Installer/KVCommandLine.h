#pragma once

#include <QString>
#include <QStringList>

// The installer's command line, read before any application object exists, so that --help,
// --version and a usage error are answered without a display, a window or a file written.
class KVCommandLine
{
public:
    enum class Request {
        Run,        // start the installer, with or without its window
        Help,       // print the usage text
        Version,    // print the bundle's version
        UsageError, // print what is wrong and the usage text
    };

    static inline const QString kHeadlessOption = QStringLiteral("--headless");
    static inline const QString kAcceptLicenseOption = QStringLiteral("--accept-license");
    static inline const QString kProxyUserOption = QStringLiteral("--proxy-user");

    // The arguments as the process received them, program name first.
    static KVCommandLine parse(int argc, char **argv);
    static KVCommandLine parse(const QStringList &arguments);

    Request request() const { return m_request; }
    bool isHeadless() const { return m_headless; }
    // The user name to give a proxy that asks for one; empty when none was given.
    QString proxyUser() const { return m_proxyUser; }

    // Prints the answer to a request other than Run on stdout or stderr and returns the exit
    // status.
    [[nodiscard]] int answer() const;

private:
    static QString usageText();

    Request m_request = Request::Run;
    bool m_headless = false;
    QString m_proxyUser;
    QString m_usageError;
};
