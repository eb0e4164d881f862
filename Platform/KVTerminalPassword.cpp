#include "Platform/KVTerminalPassword.h"

#include <cstdio>
#include <iostream>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace KVTerminalPassword {

std::optional<QByteArray> read(const QString &prompt)
{
    termios echoing{};
    if (isatty(STDIN_FILENO) == 0 || tcgetattr(STDIN_FILENO, &echoing) != 0)
        return std::nullopt;
    std::fputs(qPrintable(prompt), stderr);
    termios quiet = echoing;
    quiet.c_lflag &= ~tcflag_t(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    std::string line;
    std::getline(std::cin, line);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &echoing);
    std::fputs("\n", stderr); // the Return typed was not echoed either
    return QByteArray::fromStdString(line);
}

} // namespace KVTerminalPassword
