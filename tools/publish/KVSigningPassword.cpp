#include "KVSigningPassword.h"

#include "KVManifestPublisher.h"

#include <cstdio>
#include <iostream>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace KVSigningPassword {

KVResult<QByteArray> read(const QString &keyPath)
{
    if (qEnvironmentVariableIsSet("NESTORA_SIGN_PASSWORD"))
        return qgetenv("NESTORA_SIGN_PASSWORD");
    termios echoing{};
    if (!isatty(STDIN_FILENO) || tcgetattr(STDIN_FILENO, &echoing) != 0)
        return KVError(KVPublishErrorDomain, KVPublishErrorUnusableKey,
                       {{KVLocalizedDescriptionKey,
                         QStringLiteral("the secret key %1 is protected by a password: set NESTORA_SIGN_PASSWORD, "
                                        "or sign on a terminal to be asked for it")
                             .arg(keyPath)}});
    std::fprintf(stderr, "Password of %s: ", qPrintable(keyPath));
    termios quiet = echoing;
    quiet.c_lflag &= ~tcflag_t(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    std::string line;
    std::getline(std::cin, line);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &echoing);
    std::fputs("\n", stderr);
    return QByteArray::fromStdString(line);
}

} // namespace KVSigningPassword
