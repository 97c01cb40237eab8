// SPDX-License-Identifier: MIT
#include "platform/SharedSegment.h"

#include "platform/Platform.h"

#include <QFile>
#include <QRandomGenerator>

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmora::WorkflowCore::Platform {

// The segment is a plain file of fixed size in the user's private runtime folder (mode 0700), so
// no other user can reach it, and it is read and written with pread/pwrite under flock(). The
// kernel drops a flock when its holder dies, and since nothing is mapped, a file shrunk behind our
// back can never fault a reader: the worst it does is make a copy fail.

namespace {

constexpr int kLockWaitMilliseconds = 5000;

int OpenSegmentFile(const QByteArray& path, SharedSegment::Access access, int size)
{
    const int mode = access == SharedSegment::Access::ReadWrite ? O_RDWR : O_RDONLY;
    // O_NONBLOCK: a pipe put in its place must not hang the open; the checks below refuse it.
    const int fd = ::open(path.constData(), mode | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0)
        return -1;
    struct stat info;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != ::geteuid() ||
        info.st_size != static_cast<off_t>(size))
    {
        ::close(fd);
        return -1;
    }
    return fd;
}

void SleepMicroseconds(long microseconds)
{
    timespec pause{0, microseconds * 1000};
    ::nanosleep(&pause, nullptr);
}

} // namespace

struct SharedSegment::Data
{
    QString key;
    int size = 0;
    QByteArray path;
    int fd = -1;
    bool writable = false;

    bool ResolvePath()
    {
        if (!path.isEmpty())
            return true;
        const QString folder = RuntimeFolder();
        if (folder.isEmpty())
            return false;
        path = QFile::encodeName(folder + QLatin1Char('/') + key);
        return true;
    }
};

SharedSegment::SharedSegment(const QString& key, int size) : d(std::make_unique<Data>())
{
    d->key = key;
    d->size = size;
}

SharedSegment::~SharedSegment()
{
    Detach();
}

bool SharedSegment::Attach(Access access)
{
    Detach();
    if (d->size <= 0 || !d->ResolvePath())
        return false;
    d->fd = OpenSegmentFile(d->path, access, d->size);
    d->writable = d->fd >= 0 && access == Access::ReadWrite;
    return d->fd >= 0;
}

bool SharedSegment::Create()
{
    Detach();
    if (d->size <= 0 || !d->ResolvePath())
        return false;
    // Made full-size under a private name and then linked into place, so that no process ever
    // sees the segment with another size than its own.
    const QByteArray staging = d->path + '.' + QByteArray::number(::getpid()) + '.' +
                               QByteArray::number(QRandomGenerator::global()->generate());
    const int fd =
        ::open(staging.constData(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd < 0)
        return Attach(Access::ReadWrite);
    const bool sized = ::ftruncate(fd, static_cast<off_t>(d->size)) == 0;
    const bool linked = sized && ::link(staging.constData(), d->path.constData()) == 0;
    ::unlink(staging.constData());
    if (!linked)
    {
        ::close(fd);
        return Attach(Access::ReadWrite);
    }
    d->fd = fd;
    d->writable = true;
    return true;
}

void SharedSegment::Detach()
{
    if (d->fd >= 0)
        ::close(d->fd);
    d->fd = -1;
    d->writable = false;
}

bool SharedSegment::IsAttached() const
{
    return d->fd >= 0;
}

bool SharedSegment::IsWritable() const
{
    return d->fd >= 0 && d->writable;
}

int SharedSegment::Size() const
{
    return d->size;
}

bool SharedSegment::Lock()
{
    if (d->fd < 0)
        return false;
    // A holder that is stopped rather than dead must not hang us forever: wait a bounded time.
    long pause = 10;
    long waited = 0;
    for (;;)
    {
        if (::flock(d->fd, LOCK_EX | LOCK_NB) == 0)
            return true;
        if (errno != EWOULDBLOCK && errno != EINTR)
            return false;
        if (waited >= kLockWaitMilliseconds * 1000L)
            return false;
        SleepMicroseconds(pause);
        waited += pause;
        pause = std::min(pause * 2, 2000L);
    }
}

void SharedSegment::Unlock()
{
    if (d->fd >= 0)
        ::flock(d->fd, LOCK_UN);
}

bool SharedSegment::CopyOut(char* buffer) const
{
    if (d->fd < 0)
        return false;
    ssize_t done = 0;
    while (done < d->size)
    {
        const ssize_t n = ::pread(d->fd, buffer + done, static_cast<size_t>(d->size - done), done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false; // shrunk or unreadable: not a segment we can trust
        done += n;
    }
    return true;
}

bool SharedSegment::CopyIn(const char* data, int size)
{
    if (d->fd < 0 || !d->writable || size < 0)
        return false;
    const ssize_t total = std::min(size, d->size);
    ssize_t done = 0;
    while (done < total)
    {
        const ssize_t n = ::pwrite(d->fd, data + done, static_cast<size_t>(total - done), done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

} // namespace Velmora::WorkflowCore::Platform
