#include "KVTestUnwritableFolder.h"

#include "Core/Extensions/KVShellQuoting.h"

#include <QFile>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr unsigned kOverridingCapabilities[] = {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER};

// Sets the permission-overriding capabilities of the calling thread's effective set on or off.
bool setOverridingCapabilities(bool on)
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3]{};
    if (::syscall(SYS_capget, &header, data) != 0)
        return false;
    for (const unsigned capability : kOverridingCapabilities) {
        const unsigned mask = 1u << (capability % 32);
        if (on)
            data[capability / 32].effective |= mask;
        else
            data[capability / 32].effective &= ~mask;
    }
    return ::syscall(SYS_capset, &header, data) == 0;
}

} // namespace

KVTestUnwritableFolder::KVTestUnwritableFolder(QString folder)
    : m_folder(std::move(folder))
{
    m_unwritable = QFile::setPermissions(m_folder, QFile::ReadOwner | QFile::ExeOwner | QFile::ReadGroup |
                                                       QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther);
    if (m_unwritable && ::geteuid() == 0)
        m_unwritable = m_capabilitiesSetAside = setOverridingCapabilities(false);
}

KVTestUnwritableFolder::~KVTestUnwritableFolder()
{
    if (m_capabilitiesSetAside)
        setOverridingCapabilities(true);
    QFile::setPermissions(m_folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup |
                                        QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther);
}

QString KVTestUnwritableFolder::liftCommand() const
{
    return QStringLiteral("chmod 755 ") + KVShellQuoting::singleQuoted(m_folder);
}

QStringList KVTestUnwritableFolder::launcher()
{
    if (::geteuid() != 0)
        return {};
    return {QStringLiteral("setpriv"), QStringLiteral("--bounding-set=-dac_override,-dac_read_search,-fowner"),
            QStringLiteral("--")};
}
