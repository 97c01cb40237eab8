// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>

class QSettings;

// The one place that knows the operating system. Everything else in the library asks here.
namespace Velmora::WorkflowCore::Platform {

// The maker's name: the folder below the user's and the machine's data and settings folders
// that holds everything of this product family.
inline QString MakerName()
{
    return QStringLiteral("Velmora");
}

// The user's roaming application-data folder, created when missing and cleaned; empty when the
// platform gives none.
QString ApplicationDataFolder();

// The key of the library's own machine-wide settings, "Workflow/2015.0": where the product
// catalogue and the host version to launch are configured. The year stays fixed across releases.
inline QString LibrarySettingsKey()
{
    return QStringLiteral("Workflow/%1.%2").arg(2015).arg(0);
}

// The machine-wide settings store for one key below "Software\Velmora", such as
// "Workflow/2015.0". The caller owns the returned object.
std::unique_ptr<QSettings> MachineSettings(const QString& key);

// Whether a process with that id still runs (a process of another user counts as running).
bool IsProcessAlive(qint64 processId);

qint64 CurrentProcessId();

// The folder of the running program, asked of the system; for processes that have no
// application object to ask. Empty when the system cannot tell.
QString ExecutableFolder();

// The folder of the library or program file that holds the code at address; empty when the
// system cannot tell.
QString ModuleFolder(const void* address);

// What tells one version of a file from another without reading it: a file replaced by an
// atomic save has a new identity even when its size and time look the same.
struct FileIdentity
{
    bool exists = false;
    quint64 device = 0;
    quint64 inode = 0;
    qint64 size = 0;
    qint64 modifiedNs = 0;
    // The last change of the file or its status, which no one can set back: a file replaced by
    // another of the same size and modification time that even got the old one's freed inode
    // number still tells by this.
    qint64 changedNs = 0;
    bool operator==(const FileIdentity& other) const
    {
        return exists == other.exists && device == other.device && inode == other.inode &&
               size == other.size && modifiedNs == other.modifiedNs && changedNs == other.changedNs;
    }
    bool operator!=(const FileIdentity& other) const { return !(*this == other); }
};
FileIdentity IdentifyFile(const QString& path);

// One entry of a folder as a listing sees it: its name and the identity of what it leads to
// (a link is followed). regularFile is false for folders, devices, pipes and broken links.
struct ListedFile
{
    QString name;
    FileIdentity identity;
    bool regularFile = false;
    bool hidden = false;
};
// Every entry of the folder but "." and "..", in the order the system gives them, each with its
// identity from one status call; empty when the folder cannot be read. A catalogue of thousands
// of files is listed at the cost of the system calls alone.
QList<ListedFile> ListFolder(const QString& folder);

// The whole content of a regular file (a link to one is followed) in one go, at the cost of the
// system calls alone: a catalogue reads thousands of small files. False for a missing,
// unreadable or special file (a pipe or a device would block the read or never end).
bool ReadRegularFile(const QString& path, QByteArray& bytes);

// The user's folder for data that may be thrown away and made again; empty when there is none.
QString CacheFolder();

// A per-user folder for runtime objects (sockets, segments), private to the user (mode 0700).
// Empty when none can be had.
QString RuntimeFolder();

} // namespace Velmora::WorkflowCore::Platform
