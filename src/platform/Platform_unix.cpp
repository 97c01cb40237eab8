#include "Platform.h"
#include "PrivateFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>

#include <cerrno>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmora::WorkflowCore::Platform {

QString ApplicationDataFolder()
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (folder.isEmpty())
        return QString();
    // Like the shell's folder call with creation allowed: a folder that cannot be made is none.
    if (!QDir().mkpath(folder))
        return QString();
    return QDir::cleanPath(folder);
}

std::unique_ptr<QSettings> MachineSettings(const QString& key)
{
    return std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::SystemScope,
                                       QStringLiteral("Velmora"), key);
}

bool IsProcessAlive(qint64 processId)
{
    if (processId <= 0)
        return false;
    if (::kill(static_cast<pid_t>(processId), 0) == 0)
        return true;
    return errno == EPERM;
}

qint64 CurrentProcessId()
{
    return static_cast<qint64>(::getpid());
}

FileIdentity IdentifyFile(const QString& path)
{
    FileIdentity identity;
    struct stat info;
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return identity;
    identity.exists = true;
    identity.device = static_cast<quint64>(info.st_dev);
    identity.inode = static_cast<quint64>(info.st_ino);
    identity.size = static_cast<qint64>(info.st_size);
    identity.modifiedNs = static_cast<qint64>(info.st_mtim.tv_sec) * 1000000000LL + info.st_mtim.tv_nsec;
    return identity;
}

QString RuntimeFolder()
{
    return PrivateFolder::RuntimeFolder();
}

QString ExecutableFolder()
{
    const QFileInfo program(QStringLiteral("/proc/self/exe"));
    const QString target = program.canonicalFilePath();
    return target.isEmpty() ? QString() : QFileInfo(target).absolutePath();
}

} // namespace Velmora::WorkflowCore::Platform
