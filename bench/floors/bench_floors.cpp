// SPDX-License-Identifier: MIT
// The floors under the catalogue and the hub, measured on this machine: what listing a folder and
// stat-ing or reading every file costs with raw system calls and with Qt's file classes, and what
// a round trip of a small message over a raw local socket costs. The other benchmarks are judged
// against these figures, measured in the same run of bench/run.
//
// Generates N files of about 2.1 KB (default 10,000) in a temporary folder; every figure is the
// median of 5 passes with a warm page cache.
// Usage: bench_floors [files, default 10000] [round trips, default 2000]

#include <QByteArray>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// Microseconds per file of one pass over the folder, median of 5 passes.
double PerFile(int files, const std::function<void()>& pass)
{
    std::vector<double> samples;
    for (int i = 0; i < 5; ++i)
    {
        QElapsedTimer timer;
        timer.start();
        pass();
        samples.push_back(double(timer.nsecsElapsed()) / 1000.0 / files);
    }
    return Median(samples);
}

// Every entry of the folder but "." and "..", by name, with raw system calls.
template <typename Visit> void ForEachEntry(const QByteArray& folder, Visit visit)
{
    DIR* dir = ::opendir(folder.constData());
    if (!dir)
        return;
    while (const dirent* entry = ::readdir(dir))
    {
        if (entry->d_name[0] == '.')
            continue;
        visit(::dirfd(dir), entry->d_name);
    }
    ::closedir(dir);
}

bool WriteFiles(const QString& folder, int count)
{
    QByteArray body = "<?xml version=\"1.0\"?>\n<Workflows>\n    <Workflow Id=\"Id_Floor\" Name=\"Floor\">\n";
    while (body.size() < 2100)
        body += "        <Step Order=\"1\" Action=\"Stand for the size of a catalogued workflow\"/>\n";
    body += "    </Workflow>\n</Workflows>\n";
    for (int i = 0; i < count; ++i)
    {
        QFile file(QStringLiteral("%1/floor%2.workflow").arg(folder).arg(i, 6, 10, QLatin1Char('0')));
        if (!file.open(QIODevice::WriteOnly) || file.write(body) != body.size())
            return false;
    }
    return true;
}

// Microseconds to fault in one fresh 4 KB page of anonymous memory: the price every new page a
// process writes to pays, whatever it holds, when it is touched page by page; or, inOneCall, when
// the system makes all 16 MB ready at once (where it cannot, page by page). Median of 5 passes.
double FreshPage(bool inOneCall)
{
    const size_t bytes = size_t(16) << 20;
    const size_t page = 4096;
    std::vector<double> samples;
    for (int pass = 0; pass < 5; ++pass)
    {
        void* memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            return -1;
        auto* bytesAt = static_cast<volatile char*>(memory);
        QElapsedTimer timer;
        timer.start();
#ifdef MADV_POPULATE_WRITE
        if (inOneCall && ::madvise(memory, bytes, MADV_POPULATE_WRITE) != 0)
            inOneCall = false;
#else
        inOneCall = false;
#endif
        if (!inOneCall)
        {
            for (size_t at = 0; at < bytes; at += page)
                bytesAt[at] = 1;
        }
        samples.push_back(double(timer.nsecsElapsed()) / 1000.0 / double(bytes / page));
        ::munmap(memory, bytes);
    }
    return Median(samples);
}

// Median microseconds of a round trip of a 200-byte message to a child that echoes it back over
// a local stream socket.
double SocketRoundTrip(int trips)
{
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0)
        return -1;
    const pid_t child = ::fork();
    if (child == 0)
    {
        ::close(pair[0]);
        char buffer[200];
        for (;;)
        {
            size_t got = 0;
            while (got < sizeof buffer)
            {
                const ssize_t n = ::read(pair[1], buffer + got, sizeof buffer - got);
                if (n <= 0)
                    ::_exit(0);
                got += size_t(n);
            }
            if (::write(pair[1], buffer, sizeof buffer) != ssize_t(sizeof buffer))
                ::_exit(1);
        }
    }
    ::close(pair[1]);
    char message[200];
    std::memset(message, 'x', sizeof message);
    std::vector<double> samples;
    for (int i = 0; i < trips + trips / 10; ++i)
    {
        QElapsedTimer timer;
        timer.start();
        if (::write(pair[0], message, sizeof message) != ssize_t(sizeof message))
            break;
        size_t got = 0;
        char answer[200];
        while (got < sizeof answer)
        {
            const ssize_t n = ::read(pair[0], answer + got, sizeof answer - got);
            if (n <= 0)
                break;
            got += size_t(n);
        }
        if (i >= trips / 10) // the first tenth warms up
            samples.push_back(double(timer.nsecsElapsed()) / 1000.0);
    }
    ::close(pair[0]);
    ::waitpid(child, nullptr, 0);
    return Median(samples);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int files = argc > 1 ? std::max(1, atoi(argv[1])) : 10000;
    const int trips = argc > 2 ? std::max(10, atoi(argv[2])) : 2000;
    QTemporaryDir root;
    if (!root.isValid() || !WriteFiles(root.path(), files))
    {
        std::fprintf(stderr, "bench_floors: the files could not be written\n");
        return 1;
    }
    const QByteArray folder = QFile::encodeName(root.path());
    long long sink = 0;

    const double rawStat = PerFile(files, [&] {
        ForEachEntry(folder, [&](int dir, const char* name) {
            struct stat info;
            if (::fstatat(dir, name, &info, 0) == 0)
                sink += info.st_size + info.st_mtim.tv_nsec + static_cast<long long>(info.st_ino);
        });
    });
    const double rawRead = PerFile(files, [&] {
        char buffer[8192];
        ForEachEntry(folder, [&](int dir, const char* name) {
            const int fd = ::openat(dir, name, O_RDONLY | O_CLOEXEC);
            if (fd < 0)
                return;
            ssize_t n;
            while ((n = ::read(fd, buffer, sizeof buffer)) > 0)
                sink += n;
            ::close(fd);
        });
    });
    const double qtInfo = PerFile(files, [&] {
        for (const QFileInfo& info :
             QDir(root.path()).entryInfoList({QStringLiteral("*.workflow")}, QDir::Files, QDir::Name))
            sink += info.size() + info.lastModified().toMSecsSinceEpoch();
    });
    const double qtRead = PerFile(files, [&] {
        for (const QFileInfo& info :
             QDir(root.path()).entryInfoList({QStringLiteral("*.workflow")}, QDir::Files, QDir::Name))
        {
            QFile file(info.filePath());
            if (file.open(QIODevice::ReadOnly))
                sink += file.readAll().size();
        }
    });
    const double roundTrip = SocketRoundTrip(trips);
    const double freshPage = FreshPage(false);
    const double populatedPage = FreshPage(true);

    std::printf("%d files of about 2.1 KB, warm page cache, median of 5 passes (checksum %lld)\n", files,
                sink % 10);
    std::printf("floor list+stat raw: %.2f us per file\n", rawStat);
    std::printf("floor list+read raw: %.2f us per file\n", rawRead);
    std::printf("floor list+QFileInfo: %.2f us per file\n", qtInfo);
    std::printf("floor list+QFile readAll: %.2f us per file\n", qtRead);
    std::printf("floor local-socket round trip of 200 bytes: %.2f us median of %d\n", roundTrip, trips);
    std::printf("floor fresh memory: %.2f us per 4 KB page first written\n", freshPage);
    std::printf("floor fresh memory in one call: %.2f us per 4 KB page made ready at once\n", populatedPage);
    return 0;
}
