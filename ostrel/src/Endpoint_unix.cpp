#include "Endpoint.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <sys/stat.h>
#include <unistd.h>

namespace Velmora::OstrelAdapter {

namespace {

// Endpoints are socket files in a folder only this user may enter, inside the user's runtime
// folder (or, without XDG_RUNTIME_DIR, the per-user folder Qt itself would pick).
QString EndpointFolder()
{
    const QString runtime = qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR")
                                ? QStringLiteral("%1/runtime-uid%2").arg(QDir::tempPath()).arg(::getuid())
                                : QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (runtime.isEmpty())
        return QString();
    const QString folder = QDir::cleanPath(runtime + QStringLiteral("/velmora-ostrel"));
    if (!QDir().mkpath(folder))
        return QString();
    struct stat info;
    const QByteArray native = QFile::encodeName(folder);
    if (::lstat(native.constData(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != ::getuid())
        return QString();
    if ((info.st_mode & 0777) != S_IRWXU && ::chmod(native.constData(), S_IRWXU) != 0)
        return QString();
    return folder;
}

} // namespace

QString EndpointName(qint64 processId)
{
    if (processId <= 0)
        return QString();
    const QString folder = EndpointFolder();
    return folder.isEmpty() ? QString() : folder + QLatin1Char('/') + QString::number(processId);
}

} // namespace Velmora::OstrelAdapter
