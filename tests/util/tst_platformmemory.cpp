// SPDX-License-Identifier: MIT
// Fresh memory made ready in one go (heap reservations, prepared blocks) and the folder listing
// that takes its memory that way: pages are resident before anything touches them, contents are
// left alone, what a reservation did not use goes back to the heap, and a listing sees every
// kind of entry.

#include "platform/Platform.h"

#include "TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#ifdef Q_OS_UNIX
#include <malloc.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#if defined(__SANITIZE_ADDRESS__)
#define VMWF_HEAP_REPLACED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VMWF_HEAP_REPLACED 1
#endif
#endif

using namespace Velmora::WorkflowCore;

namespace {

#ifdef Q_OS_UNIX
size_t PageSize()
{
    return static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

// How many of the whole pages inside [begin, begin + bytes) are resident; -1 when the system
// cannot tell.
long ResidentPages(const void* begin, size_t bytes)
{
    const size_t page = PageSize();
    const uintptr_t first = (reinterpret_cast<uintptr_t>(begin) + page - 1) & ~(page - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(begin) + bytes) & ~(page - 1);
    if (end <= first)
        return 0;
    std::vector<unsigned char> resident((end - first) / page);
    if (::mincore(reinterpret_cast<void*>(first), end - first, resident.data()) != 0)
        return -1;
    long count = 0;
    for (const unsigned char flags : resident)
        count += flags & 1;
    return count;
}

long WholePages(const void* begin, size_t bytes)
{
    const size_t page = PageSize();
    const uintptr_t first = (reinterpret_cast<uintptr_t>(begin) + page - 1) & ~(page - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(begin) + bytes) & ~(page - 1);
    return end > first ? long((end - first) / page) : 0;
}

// Whether this system hands pages over in one call at all: older kernels do not, and there a
// reservation is rightly nothing.
bool CanPopulate()
{
#ifdef MADV_POPULATE_WRITE
    const size_t page = PageSize();
    void* probe = ::mmap(nullptr, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (probe == MAP_FAILED)
        return false;
    const bool populated = ::madvise(probe, page, MADV_POPULATE_WRITE) == 0;
    ::munmap(probe, page);
    return populated;
#else
    return false;
#endif
}

// Blocks below the size the heap maps on its own, so that they come from the heap itself; the
// heap writes only their edges when it hands them out.
constexpr size_t kBlock = 100 * 1024;
constexpr int kBlocks = 200;

struct Blocks
{
    std::vector<char*> taken;
    ~Blocks()
    {
        for (char* block : taken)
            std::free(block);
    }
    void Take(int count)
    {
        for (int i = 0; i < count; ++i)
            taken.push_back(static_cast<char*>(std::malloc(kBlock)));
    }
    // Resident pages inside the blocks and all pages inside them, their edges left out.
    std::pair<long, long> Residency() const
    {
        long resident = 0;
        long all = 0;
        for (const char* block : taken)
        {
            resident += ResidentPages(block + PageSize(), kBlock - 2 * PageSize());
            all += WholePages(block + PageSize(), kBlock - 2 * PageSize());
        }
        return {resident, all};
    }
};
#endif

} // namespace

class tst_PlatformMemory : public QObject
{
    Q_OBJECT
private:
    VmWorkflowTest::TestEnvironment m_env;

    // Why reservations cannot be seen at work here; null when they can.
    static const char* WhyNoReservations()
    {
#if !defined(Q_OS_UNIX) || !defined(__GLIBC__)
        return "Reservations are made on Unix with the C library's heap only.";
#elif defined(VMWF_HEAP_REPLACED)
        return "The sanitizer's heap keeps freed memory aside: a reservation cannot be reused there.";
#else
        return CanPopulate() ? nullptr : "This kernel cannot hand pages over in one call.";
#endif
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
    }

    // Without a reservation, blocks fresh from the heap have no pages until they are touched:
    // the check below would see a reservation that does nothing.
    void freshBlocksHaveNoPagesWithoutAReservation()
    {
        if (const char* why = WhyNoReservations())
            QSKIP(why);
#if defined(Q_OS_UNIX) && defined(__GLIBC__)
        Blocks blocks;
        blocks.Take(kBlocks);
        const auto [resident, all] = blocks.Residency();
        QVERIFY(all > kBlocks * 20);
        // Whatever the heap had freed before may be reused, but not twenty megabytes of it.
        QVERIFY2(resident < all / 2, qPrintable(QStringLiteral("%1 of %2").arg(resident).arg(all)));
#endif
    }

    void blocksTakenAfterAReservationHaveTheirPagesAlready()
    {
        if (const char* why = WhyNoReservations())
            QSKIP(why);
#if defined(Q_OS_UNIX) && defined(__GLIBC__)
        // With room to spare: the heap may take some of it for the blocks' edges.
        const Platform::HeapReservation reservation(kBlocks * kBlock * 3 / 2);
        Blocks blocks;
        blocks.Take(kBlocks);
        const auto [resident, all] = blocks.Residency();
        QVERIFY(all > kBlocks * 20);
        // All but a few pages at the seams with free memory the heap held before, which joins
        // the reserved stretch when it is given back.
        QVERIFY2(resident >= all - all / 50, qPrintable(QStringLiteral("%1 of %2").arg(resident).arg(all)));
#endif
    }

    // Made ready on another thread: once the reservation ends, blocks taken while it lived have
    // their pages, untouched, and blocks written meanwhile hold what was written.
    void aReservationMadeReadyAsideServesTheBlocksTakenMeanwhile()
    {
        if (const char* why = WhyNoReservations())
            QSKIP(why);
#if defined(Q_OS_UNIX) && defined(__GLIBC__)
        Blocks untouched;
        Blocks written;
        {
            const Platform::HeapReservation reservation(kBlocks * kBlock * 3,
                                                        Platform::HeapReservation::Populating::Aside);
            for (int i = 0; i < kBlocks; ++i)
            {
                untouched.Take(1);
                written.Take(1);
                std::memset(written.taken.back(), i & 0xFF, kBlock);
            }
        }
        const auto [resident, all] = untouched.Residency();
        QVERIFY(all > kBlocks * 20);
        QVERIFY2(resident >= all - all / 50, qPrintable(QStringLiteral("%1 of %2").arg(resident).arg(all)));
        for (int i = 0; i < kBlocks; ++i)
        {
            const char* block = written.taken[size_t(i)];
            const bool intact =
                std::all_of(block, block + kBlock, [i](char c) { return c == char(i & 0xFF); });
            QVERIFY2(intact, qPrintable(QStringLiteral("block %1").arg(i)));
        }
#endif
    }

    void aReservationHandsTheHeapItsMemoryAndTakesBackWhatWasNotUsed()
    {
        if (const char* why = WhyNoReservations())
            QSKIP(why);
#if defined(Q_OS_UNIX) && defined(__GLIBC__)
        const size_t reserved = 32 * 1024 * 1024;
        const size_t freeBefore = mallinfo2().fordblks;
        size_t freeDuring = 0;
        {
            const Platform::HeapReservation reservation(reserved);
            freeDuring = mallinfo2().fordblks;
            // Small blocks are served from it while it lives.
            std::vector<void*> small;
            for (int i = 0; i < 1000; ++i)
                small.push_back(std::malloc(200));
            for (void* block : small)
                QVERIFY(block != nullptr);
            for (void* block : small)
                std::free(block);
        }
        const size_t freeAfter = mallinfo2().fordblks;
        // Whatever the heap held free before may be part of it.
        QVERIFY2(freeDuring >= reserved * 3 / 4 && freeDuring >= freeBefore,
                 qPrintable(QStringLiteral("%1 -> %2").arg(freeBefore).arg(freeDuring)));
        // Given back to the system, not left in the heap.
        QVERIFY2(freeAfter < freeBefore + 4 * 1024 * 1024,
                 qPrintable(QStringLiteral("%1 -> %2").arg(freeBefore).arg(freeAfter)));
#endif
    }

    void aReservationTooSmallToMatterTakesNothing()
    {
#if defined(Q_OS_UNIX) && defined(__GLIBC__) && !defined(VMWF_HEAP_REPLACED)
        const size_t freeBefore = mallinfo2().fordblks;
        {
            const Platform::HeapReservation none(0);
            const Platform::HeapReservation little(1000);
            QVERIFY(mallinfo2().fordblks < freeBefore + 128 * 1024);
        }
#else
        const Platform::HeapReservation none(0);
        const Platform::HeapReservation little(1000);
#endif
    }

    void reservationsOnManyThreadsAtOnce()
    {
        // Each thread reserves in its own heap and lets go in any order; nothing is lost.
        std::vector<std::thread> threads;
        std::atomic<int> filled{0};
        for (int t = 0; t < 4; ++t)
        {
            threads.emplace_back([&filled, t] {
                const Platform::HeapReservation reservation(
                    4 * 1024 * 1024, t % 2 ? Platform::HeapReservation::Populating::Aside
                                           : Platform::HeapReservation::Populating::Here);
                std::vector<QString> texts;
                for (int i = 0; i < 10000; ++i)
                    texts.push_back(QString::number(i).repeated(8));
                bool intact = true;
                for (int i = 0; i < 10000; ++i)
                    intact = intact && texts[size_t(i)] == QString::number(i).repeated(8);
                filled += intact ? 1 : 0;
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        QCOMPARE(filled.load(), 4);
    }

    void preparedMemoryIsResidentAndKeepsItsContent()
    {
#if defined(Q_OS_UNIX)
        const size_t page = PageSize();
        const size_t bytes = 256 * page;
        auto* region = static_cast<char*>(
            ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        QVERIFY(region != MAP_FAILED);
        std::memset(region + 3 * page, 0x5a, page);
        QCOMPARE(ResidentPages(region, bytes), 1L);
        // Not on page boundaries: only the whole pages inside are made ready.
        Platform::PrepareMemory(region + 10, bytes - 20);
        if (CanPopulate())
        {
            QCOMPARE(ResidentPages(region + page, bytes - 2 * page), long(bytes / page) - 2);
            QCOMPARE(ResidentPages(region, page), 0L);
        }
        for (size_t i = 0; i < page; ++i)
            QCOMPARE(region[3 * page + i], char(0x5a));
        QCOMPARE(region[5 * page], char(0));
        Platform::PrepareMemory(region, 0);
        Platform::PrepareMemory(nullptr, 0);
        ::munmap(region, bytes);
#else
        QSKIP("Prepared memory is a matter of Unix only.");
#endif
    }

    void aListingSeesEveryKindOfEntry()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const auto write = [&](const QString& name) {
            QFile file(dir.filePath(name));
            return file.open(QIODevice::WriteOnly) && file.write("<Workflows/>") == 12;
        };
        // More entries than a listing would take in one small step.
        QSet<QString> regular;
        for (int i = 0; i < 3000; ++i)
        {
            const QString name = QStringLiteral("f%1.workflow").arg(i);
            QVERIFY(write(name));
            regular.insert(name);
        }
        QVERIFY(write(QStringLiteral(".hidden.workflow")));
        QVERIFY(write(QStringLiteral("n\u00e4me.workflow")));
        regular.insert(QStringLiteral("n\u00e4me.workflow"));
        QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("folder.workflow")));
#ifdef Q_OS_UNIX
        QVERIFY(QFile::link(dir.filePath(QStringLiteral("f1.workflow")),
                            dir.filePath(QStringLiteral("link.workflow"))));
        QVERIFY(QFile::link(dir.filePath(QStringLiteral("missing")),
                            dir.filePath(QStringLiteral("broken.workflow"))));
        QCOMPARE(::mkfifo(QFile::encodeName(dir.filePath(QStringLiteral("pipe.workflow"))).constData(), 0600),
                 0);
#endif
        const QList<Platform::ListedFile> listed = Platform::ListFolder(dir.path());
        QSet<QString> names;
        for (const Platform::ListedFile& file : listed)
        {
            QVERIFY2(!names.contains(file.name), qPrintable(file.name));
            names.insert(file.name);
            if (regular.contains(file.name))
            {
                QVERIFY(file.regularFile);
                QVERIFY(!file.hidden);
                QVERIFY(file.identity.exists);
                QCOMPARE(file.identity.size, 12);
            }
        }
        QVERIFY(!names.contains(QStringLiteral(".")));
        QVERIFY(!names.contains(QStringLiteral("..")));
        for (const QString& name : std::as_const(regular))
            QVERIFY2(names.contains(name), qPrintable(name));
        const auto find = [&](const QString& name) {
            for (const Platform::ListedFile& file : listed)
            {
                if (file.name == name)
                    return file;
            }
            return Platform::ListedFile();
        };
        QVERIFY(find(QStringLiteral(".hidden.workflow")).hidden);
        QVERIFY(find(QStringLiteral(".hidden.workflow")).regularFile);
        QVERIFY(!find(QStringLiteral("folder.workflow")).regularFile);
        QVERIFY(find(QStringLiteral("folder.workflow")).identity.exists);
#ifdef Q_OS_UNIX
        QCOMPARE(listed.size(), qsizetype(3000 + 2 + 1 + 3));
        // A link is followed; a broken one has no identity; a pipe is no regular file.
        QVERIFY(find(QStringLiteral("link.workflow")).regularFile);
        QCOMPARE(find(QStringLiteral("link.workflow")).identity.inode,
                 find(QStringLiteral("f1.workflow")).identity.inode);
        QVERIFY(!find(QStringLiteral("broken.workflow")).regularFile);
        QVERIFY(!find(QStringLiteral("broken.workflow")).identity.exists);
        QVERIFY(!find(QStringLiteral("pipe.workflow")).regularFile);
        QVERIFY(find(QStringLiteral("pipe.workflow")).identity.exists);
#endif

        // Each entry asked about by its path, alone or folder by folder, is what the listing saw,
        // whatever it is; asking about a file of another folder in between changes nothing.
        QTemporaryDir other;
        QVERIFY(other.isValid());
        {
            QFile elsewhere(other.filePath(QStringLiteral("elsewhere.workflow")));
            QVERIFY(elsewhere.open(QIODevice::WriteOnly) && elsewhere.write("<Workflows/>") == 12);
        }
        Platform::FolderStatus status;
        int asked = 0;
        for (const Platform::ListedFile& file : listed)
        {
            const QString path = dir.filePath(file.name);
            for (const Platform::ListedFile& seen : {Platform::StatusOf(path), status.Of(path)})
            {
                QVERIFY2(seen.regularFile == file.regularFile, qPrintable(file.name));
                QVERIFY2(seen.hidden == file.hidden, qPrintable(file.name));
                QVERIFY2(seen.identity == file.identity, qPrintable(file.name));
            }
            if (++asked % 700 == 0)
            {
                const Platform::ListedFile elsewhere =
                    status.Of(other.filePath(QStringLiteral("elsewhere.workflow")));
                QVERIFY(elsewhere.regularFile);
                QCOMPARE(elsewhere.identity.size, 12);
            }
        }
        QCOMPARE(asked, int(listed.size()));
        QVERIFY(!status.Of(dir.filePath(QStringLiteral("missing.workflow"))).identity.exists);
        QVERIFY(!status.Of(other.filePath(QStringLiteral("missing/elsewhere.workflow"))).identity.exists);
        QVERIFY(!Platform::StatusOf(dir.filePath(QStringLiteral("missing.workflow"))).identity.exists);
        QVERIFY(status.Of(dir.filePath(QStringLiteral(".hidden.workflow"))).hidden);
    }

    void aListingOfAnEmptyOrMissingFolderIsEmpty()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        QVERIFY(Platform::ListFolder(dir.path()).isEmpty());
        QVERIFY(Platform::ListFolder(dir.filePath(QStringLiteral("missing"))).isEmpty());
        QVERIFY(Platform::ListFolder(QString()).isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_PlatformMemory)
#include "tst_platformmemory.moc"
