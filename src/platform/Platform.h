// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>
#include <thread>

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

// A folder listed in two steps: the names of its entries at once, then the identity of each
// entry when it is wanted. A reader with work to do for every file can do it between the status
// calls instead of waiting for the status of thousands of files first.
class FolderNames
{
public:
    // Every entry of the folder but "." and "..", in the order the system gives them; none when
    // the folder cannot be read.
    explicit FolderNames(const QString& folder);
    ~FolderNames();
    FolderNames(const FolderNames&) = delete;
    FolderNames& operator=(const FolderNames&) = delete;

    const QStringList& Names() const { return m_names; }
    // The entry named Names().at(i), with the identity of what it leads to from one status call
    // made now.
    ListedFile Identify(qsizetype i) const;

private:
    QStringList m_names;
#ifdef Q_OS_WIN
    QString m_folder;
#else
    // The names as the system spelled them, each ended by a zero, and where each starts.
    QByteArray m_encoded;
    QList<qsizetype> m_starts;
    void* m_dir = nullptr;
#endif
};

// The entry at path as a listing of its folder sees it (its name left empty), from one status call.
ListedFile StatusOf(const QString& path);

// Status calls for the files of one folder after another, each made within its folder, which
// is kept open while the files asked about are in it: thousands of files of one folder cost a
// status call each, without their folder's path being walked every time.
class FolderStatus
{
public:
    FolderStatus() = default;
    ~FolderStatus();
    FolderStatus(const FolderStatus&) = delete;
    FolderStatus& operator=(const FolderStatus&) = delete;

    // What StatusOf(path) gives.
    ListedFile Of(const QString& path);

private:
    QString m_folder;
    int m_folderHandle = -1;
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

// Memory that a thread is about to fill, made ready in one go. Every first touch of a fresh page
// costs a trap of its own, and on the virtual machines this library runs on that is dear (about
// 12 us a page, against under 1 us a page when the system hands many pages over in one call). A
// catalogue of thousands of workflows takes tens of thousands of fresh pages in small pieces, so
// before it does, it asks for about the memory it will take on the thread that takes it: the
// pieces are taken from that thread's heap, handed their pages in one call, and given back to the
// heap at once, except the last, which keeps the rest from being handed back to the system. What
// the thread allocates next is served from that memory. Letting the reservation go gives back
// what was not used. Only ever a matter of speed: where the system cannot hand pages over in one
// call, nothing is reserved.
// A request larger than this is taken as no more than this: a reservation is a guess at what
// comes, never a reason to hold a large part of the machine's memory.
constexpr size_t kLargestHeapReservation = size_t(512) * 1024 * 1024;

class HeapReservation
{
public:
    // Here: the pages are ready when the reservation is made. Aside: another thread makes them
    // ready while this one already fills them; for a thread whose time counts more than a core
    // that would stand idle.
    enum class Populating
    {
        Here,
        Aside
    };
    explicit HeapReservation(size_t bytes, Populating populating = Populating::Here);
    ~HeapReservation();
    HeapReservation(const HeapReservation&) = delete;
    HeapReservation& operator=(const HeapReservation&) = delete;

private:
    void* m_guard = nullptr;
    std::thread m_populating;
};

// Makes the pages of a block that is about to be written ready in one call, for a block too large
// for a reservation to serve (the heap maps large blocks on their own). Only ever a matter of
// speed; the content of the block is left as it is.
void PrepareMemory(void* begin, size_t bytes);

} // namespace Velmora::WorkflowCore::Platform
