// SPDX-License-Identifier: MIT
#pragma once

// The one rule for folders that hold this user's runtime objects (hub endpoints, the shared
// segment of executing workflows). Header-only, so that the workflow library and the hub library,
// which builds on its own, judge such folders the same way.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmora::PrivateFolder {

// Where a process that had to make a runtime folder of its own names it, so that the processes
// it starts find the same folder.
inline constexpr char kOwnRuntimeFolderVariable[] = "VELMORA_PRIVATE_RUNTIME_DIR";

// Makes path a folder of this user's alone: creates it, and any missing folder on the way, with
// mode 0700, then accepts it only when it is a real folder, not a link, owned by this user, and
// nobody else may add or remove entries in it. Read and search rights of others are taken away;
// with no write right nobody else can have put anything there. False otherwise: a folder someone
// else owns or may write to is never used.
inline bool Ensure(const QString& path)
{
    if (path.isEmpty() || QDir::isRelativePath(path))
        return false;
    const QString clean = QDir::cleanPath(path);
    const QByteArray native = QFile::encodeName(clean);
    if (::mkdir(native.constData(), S_IRWXU) != 0 && errno != EEXIST)
    {
        // Missing folders on the way are made by the same rule, so they are ours too.
        const QString parent = QFileInfo(clean).path();
        if (errno != ENOENT || parent == clean || !Ensure(parent))
            return false;
        if (::mkdir(native.constData(), S_IRWXU) != 0 && errno != EEXIST)
            return false;
    }
    struct stat info;
    if (::lstat(native.constData(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != ::geteuid())
        return false;
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return false;
    return (info.st_mode & 07777) == S_IRWXU || ::chmod(native.constData(), S_IRWXU) == 0;
}

// A folder of our own under the temporary folder, made with an unguessable name, for when the
// usual runtime folder fails the rule. Made once and inherited by the processes started from
// here; empty when none can be made.
inline QString OwnRuntimeFolder()
{
    const QString earlier = qEnvironmentVariable(kOwnRuntimeFolderVariable);
    if (Ensure(earlier))
        return QDir::cleanPath(earlier);
    QByteArray name = QFile::encodeName(QDir::tempPath() + QStringLiteral("/velmora-runtime-XXXXXX"));
    if (!::mkdtemp(name.data()))
        return QString();
    qputenv(kOwnRuntimeFolderVariable, name);
    return QDir::cleanPath(QFile::decodeName(name));
}

// The user's runtime folder: XDG_RUNTIME_DIR, or without it "runtime-uid<uid>" in the temporary
// folder, when it passes the rule; otherwise a folder of our own. Empty when there is none.
inline QString RuntimeFolder()
{
    const QString runtime = qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR")
                                ? QStringLiteral("%1/runtime-uid%2").arg(QDir::tempPath()).arg(::geteuid())
                                : QDir::cleanPath(qEnvironmentVariable("XDG_RUNTIME_DIR"));
    return Ensure(runtime) ? QDir::cleanPath(runtime) : OwnRuntimeFolder();
}

// The folder named sub inside the runtime folder, by the same rule at every step; inside a folder
// of our own when the usual one, or its sub-folder, fails. Empty when there is none.
inline QString RuntimeSubFolder(const QString& sub)
{
    const QString runtime = RuntimeFolder();
    if (!runtime.isEmpty() && Ensure(runtime + QLatin1Char('/') + sub))
        return runtime + QLatin1Char('/') + sub;
    const QString own = OwnRuntimeFolder();
    if (!own.isEmpty() && own != runtime && Ensure(own + QLatin1Char('/') + sub))
        return own + QLatin1Char('/') + sub;
    return QString();
}

} // namespace Velmora::PrivateFolder
