// SPDX-License-Identifier: MIT
#include "platform/Platform.h"
#include "platform/PrivateFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

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
    // The store reads Velmora/<key>.conf and Velmora.conf below every configuration folder; one
    // that is there but is no regular file (a pipe, a device) would block the read: read none.
    QString folders = qEnvironmentVariable("XDG_CONFIG_DIRS");
    if (folders.isEmpty())
        folders = QStringLiteral("/etc/xdg");
    for (const QString& folder : folders.split(QLatin1Char(':'), Qt::SkipEmptyParts))
    {
        for (const QString& name : {QStringLiteral("%1/%2/%3.conf").arg(folder, MakerName(), key),
                                    QStringLiteral("%1/%2.conf").arg(folder, MakerName())})
        {
            struct stat info;
            if (::stat(QFile::encodeName(name).constData(), &info) == 0 && !S_ISREG(info.st_mode))
                return std::make_unique<QSettings>(QString(), QSettings::IniFormat);
        }
    }
    return std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::SystemScope, MakerName(), key);
}

namespace {
// A killed process stays a zombie until its parent reaps it; it runs no more, so it counts as
// ended. When the state cannot be read (say, /proc hides other users' processes) it counts as
// running, as the signal test said.
bool IsZombie(pid_t processId)
{
    char path[48];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(processId));
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    char text[512];
    const ssize_t n = ::read(fd, text, sizeof text - 1);
    ::close(fd);
    if (n <= 0)
        return false;
    text[n] = '\0';
    // "pid (name) S ...": the name may hold anything, so the state follows the last ')'.
    const char* close = std::strrchr(text, ')');
    return close && close[1] == ' ' && close[2] == 'Z';
}
} // namespace

bool IsProcessAlive(qint64 processId)
{
    // Beyond the range of a pid the cast could turn into a process group or "every process".
    if (processId <= 0 || processId > std::numeric_limits<pid_t>::max())
        return false;
#ifdef SYS_pidfd_open
    // A process descriptor turns readable the moment its process has ended, zombie or not: one
    // cheap question instead of formatting the process's whole status line.
    const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(processId), 0));
    if (descriptor >= 0)
    {
        pollfd ended{descriptor, POLLIN, 0};
        const int ready = ::poll(&ended, 1, 0);
        ::close(descriptor);
        if (ready >= 0)
            return ready == 0;
    }
    else if (errno == ESRCH)
    {
        return false;
    }
#endif
    // Kernels without process descriptors.
    if (::kill(static_cast<pid_t>(processId), 0) != 0 && errno != EPERM)
        return false;
    return !IsZombie(static_cast<pid_t>(processId));
}

qint64 CurrentProcessId()
{
    return static_cast<qint64>(::getpid());
}

namespace {

// A path or name as the system spells it, for one call. Nearly every name a catalogue asks about
// is plain ASCII, which is its own encoding: such a text is copied byte for byte into room of
// its own, and only anything else goes through the file-name encoder.
class SystemName
{
public:
    explicit SystemName(QStringView text)
    {
        const qsizetype size = text.size();
        if (size < qsizetype(sizeof m_short))
        {
            const char16_t* units = text.utf16();
            qsizetype i = 0;
            for (; i < size && units[i] < 0x80; ++i)
                m_short[i] = static_cast<char>(units[i]);
            if (i == size)
            {
                m_short[size] = '\0';
                m_data = m_short;
                return;
            }
        }
        m_long = QFile::encodeName(text.toString());
        m_data = m_long.constData();
    }
    SystemName(const SystemName&) = delete;
    SystemName& operator=(const SystemName&) = delete;

    const char* Data() const { return m_data; }
    bool IsEmpty() const { return m_data[0] == '\0'; }

private:
    char m_short[256];
    QByteArray m_long;
    const char* m_data = nullptr;
};

// A name as the system gave it, ended by a zero: ASCII is taken as it stands, anything else is
// decoded as every file name is.
QString DecodedName(const char* name, size_t length)
{
    for (size_t i = 0; i < length; ++i)
    {
        if (static_cast<unsigned char>(name[i]) >= 0x80)
            return QFile::decodeName(name);
    }
    return QString::fromLatin1(name, qsizetype(length));
}

FileIdentity IdentityOf(const struct stat& info)
{
    FileIdentity identity;
    identity.exists = true;
    identity.device = static_cast<quint64>(info.st_dev);
    identity.inode = static_cast<quint64>(info.st_ino);
    identity.size = static_cast<qint64>(info.st_size);
    identity.modifiedNs = static_cast<qint64>(info.st_mtim.tv_sec) * 1000000000LL + info.st_mtim.tv_nsec;
    identity.changedNs = static_cast<qint64>(info.st_ctim.tv_sec) * 1000000000LL + info.st_ctim.tv_nsec;
    return identity;
}

} // namespace

FileIdentity IdentifyFile(const QString& path)
{
    struct stat info;
    if (::stat(SystemName(path).Data(), &info) != 0)
        return FileIdentity();
    return IdentityOf(info);
}

FolderNames::FolderNames(const QString& folder)
{
    DIR* dir = ::opendir(QFile::encodeName(folder).constData());
    if (!dir)
        return;
    m_dir = dir;
    // The encoded names first, in one buffer, so that the names take their memory in one go.
    qsizetype count = 0;
    while (const dirent* entry = ::readdir(dir))
    {
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
            continue;
        m_starts.append(m_encoded.size());
        m_encoded.append(name, qsizetype(std::strlen(name)) + 1);
        ++count;
    }
    m_names.reserve(count);
    for (qsizetype i = 0; i < count; ++i)
    {
        const qsizetype start = m_starts.at(i);
        const qsizetype end = i + 1 < count ? m_starts.at(i + 1) : m_encoded.size();
        m_names.append(DecodedName(m_encoded.constData() + start, size_t(end - start - 1)));
    }
}

FolderNames::~FolderNames()
{
    if (m_dir)
        ::closedir(static_cast<DIR*>(m_dir));
}

ListedFile FolderNames::Identify(qsizetype i) const
{
    ListedFile file;
    if (i < 0 || i >= m_names.size())
        return file;
    const char* name = m_encoded.constData() + m_starts.at(i);
    file.name = m_names.at(i);
    file.hidden = name[0] == '.';
    struct stat info;
    // Followed like any open would follow it; a broken link has no identity.
    if (::fstatat(::dirfd(static_cast<DIR*>(m_dir)), name, &info, 0) == 0)
    {
        file.identity = IdentityOf(info);
        file.regularFile = S_ISREG(info.st_mode);
    }
    return file;
}

ListedFile StatusOf(const QString& path)
{
    ListedFile file;
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    file.hidden = path.size() > slash + 1 && path.at(slash + 1) == QLatin1Char('.');
    struct stat info;
    if (::stat(SystemName(path).Data(), &info) == 0)
    {
        file.identity = IdentityOf(info);
        file.regularFile = S_ISREG(info.st_mode);
    }
    return file;
}

FolderStatus::~FolderStatus()
{
    if (m_folderHandle >= 0)
        ::close(m_folderHandle);
}

ListedFile FolderStatus::Of(const QString& path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    if (slash < 0)
        return StatusOf(path);
    // The folder with its closing slash: "/" stays itself.
    const QStringView folder = QStringView(path).left(slash + 1);
    if (m_folderHandle < 0 || folder != m_folder)
    {
        if (m_folderHandle >= 0)
            ::close(m_folderHandle);
        m_folder = folder.toString();
        m_folderHandle = ::open(QFile::encodeName(m_folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }
    if (m_folderHandle < 0)
        return StatusOf(path);
    ListedFile file;
    const SystemName name(QStringView(path).mid(slash + 1));
    file.hidden = name.Data()[0] == '.';
    struct stat info;
    if (!name.IsEmpty() && ::fstatat(m_folderHandle, name.Data(), &info, 0) == 0)
    {
        file.identity = IdentityOf(info);
        file.regularFile = S_ISREG(info.st_mode);
    }
    return file;
}

QList<ListedFile> ListFolder(const QString& folder)
{
    const FolderNames names(folder);
    QList<ListedFile> listed;
    const qsizetype count = names.Names().size();
    listed.reserve(count);
    PrepareMemory(listed.data(), size_t(count) * sizeof(ListedFile));
    for (qsizetype i = 0; i < count; ++i)
        listed.append(names.Identify(i));
    return listed;
}

bool ReadRegularFile(const QString& path, QByteArray& bytes)
{
    // Not blocking: a pipe opened for reading would otherwise wait for a writer here.
    const int fd = ::open(SystemName(path).Data(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return false;
    struct stat info;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))
    {
        ::close(fd);
        return false;
    }
    // The size is a first guess: a file that grows while it is read is read to its end.
    QByteArray read(static_cast<qsizetype>(info.st_size) + 1, Qt::Uninitialized);
    qsizetype filled = 0;
    for (;;)
    {
        if (filled == read.size())
            read.resize(read.size() * 2);
        const ssize_t count = ::read(fd, read.data() + filled, static_cast<size_t>(read.size() - filled));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
        {
            ::close(fd);
            return false;
        }
        if (count == 0)
            break;
        filled += count;
    }
    ::close(fd);
    read.resize(filled);
    bytes = std::move(read);
    return true;
}

namespace {

#ifdef MADV_POPULATE_WRITE
// Populates each stretch, in order, until the system says it cannot populate at once (it says so
// on the first call: touching the pages one by one instead would only move the cost).
void Populate(const std::vector<std::pair<uintptr_t, uintptr_t>>& stretches)
{
    for (const auto& [begin, end] : stretches)
    {
        if (::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE) != 0 &&
            (errno == EINVAL || errno == ENOSYS))
            return;
    }
}
#endif

} // namespace

HeapReservation::HeapReservation(size_t bytes, Populating populating)
{
#ifdef MADV_POPULATE_WRITE
    // Pieces just below the size from which the heap maps every request on its own: each is
    // carved from the heap's free end, so that consecutive pieces lie side by side.
    constexpr size_t kPiece = 124 * 1024;
    const size_t count = std::min(bytes, kLargestHeapReservation) / kPiece;
    if (count < 2)
        return;
    std::vector<char*> pieces;
    pieces.reserve(count);
    for (size_t i = 0; i < count; ++i)
    {
        void* piece = std::malloc(kPiece);
        if (!piece)
            break;
        pieces.push_back(static_cast<char*>(piece));
    }
    if (pieces.size() < 2)
    {
        for (char* piece : pieces)
            std::free(piece);
        return;
    }
    std::sort(pieces.begin(), pieces.end());
    // The highest piece stays taken while the reservation lives: the freed ones join into one
    // free stretch below it instead of the heap's end, which the heap would hand back to the
    // system at once. It is never written, so it holds no memory of its own.
    m_guard = pieces.back();
    pieces.pop_back();
    const auto pageSize = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
    // One stretch for every run of neighbouring pieces; their pages are what the heap hands out
    // next.
    constexpr size_t kHeaderRoom = 64;
    std::vector<std::pair<uintptr_t, uintptr_t>> stretches;
    for (size_t first = 0; first < pieces.size();)
    {
        size_t last = first;
        while (last + 1 < pieces.size() && size_t(pieces[last + 1] - pieces[last]) <= kPiece + kHeaderRoom)
            ++last;
        const uintptr_t begin = (reinterpret_cast<uintptr_t>(pieces[first]) + pageSize - 1) & ~(pageSize - 1);
        const uintptr_t end = (reinterpret_cast<uintptr_t>(pieces[last]) + kPiece) & ~(pageSize - 1);
        if (end > begin)
            stretches.emplace_back(begin, end);
        first = last + 1;
    }
    if (populating == Populating::Aside)
    {
        // The pieces go back to the heap at once, and this thread starts filling them while
        // another makes their pages ready ahead of it. Making a page ready never changes what it
        // holds, so the two never disturb each other.
        for (char* piece : pieces)
            std::free(piece);
        try
        {
            m_populating = std::thread([stretches = std::move(stretches)] { Populate(stretches); });
        }
        catch (...)
        {
            // No thread to spare: this thread takes its pages as it fills them.
        }
        return;
    }
    Populate(stretches);
    for (char* piece : pieces)
        std::free(piece);
#else
    Q_UNUSED(bytes);
    Q_UNUSED(populating);
#endif
}

HeapReservation::~HeapReservation()
{
    if (m_populating.joinable())
        m_populating.join();
    std::free(m_guard);
}

void PrepareMemory(void* begin, size_t bytes)
{
#ifdef MADV_POPULATE_WRITE
    const auto pageSize = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
    const uintptr_t first = (reinterpret_cast<uintptr_t>(begin) + pageSize - 1) & ~(pageSize - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(begin) + bytes) & ~(pageSize - 1);
    if (end > first)
        ::madvise(reinterpret_cast<void*>(first), end - first, MADV_POPULATE_WRITE);
#else
    Q_UNUSED(begin);
    Q_UNUSED(bytes);
#endif
}

QString CacheFolder()
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    return folder.isEmpty() ? QString() : QDir::cleanPath(folder);
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

QString ModuleFolder(const void* address)
{
    Dl_info info{};
    if (::dladdr(address, &info) == 0 || !info.dli_fname)
        return QString();
    const QString file = QFileInfo(QFile::decodeName(info.dli_fname)).canonicalFilePath();
    return file.isEmpty() ? QString() : QFileInfo(file).absolutePath();
}

} // namespace Velmora::WorkflowCore::Platform
