// One of the processes of the registry load test. Its file is named VmWorkflowHost so that the
// library takes it for a host and lets it change the registry.
//   registry_worker work INDEX MILLISECONDS   registers its own entries, then changes them and
//                                             reads the whole list until the time is up; checks
//                                             after every change that none of its own changes
//                                             went missing, and prints "changes failed reads"
//   registry_worker hold                      takes the segment's lock, says "locked", and keeps
//                                             it until it is killed

#include <VmWorkflowCore/Workflow.h>

#include "execution/ExecutingRegistry.h"
#include "platform/SharedSegment.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include <unistd.h>

using namespace Velmora::WorkflowCore;

namespace {

constexpr int kEntries = 8;

struct Expected
{
    int status = 0;
    QString message;
    QList<int> applications;
};

// Element by element: comparing two empty lists with == hands a null pointer to memcmp in this Qt.
bool SameIds(const QList<int>& a, const QList<int>& b)
{
    return a.size() == b.size() && std::equal(a.cbegin(), a.cend(), b.cbegin());
}

// Every entry of this process holds what this process last wrote into it.
bool OwnEntriesIntact(const ExecutingRegistry& registry,
                      const std::vector<std::unique_ptr<Workflow>>& workflows,
                      const std::vector<Expected>& expected)
{
    const QList<ExecutingWorkflowRecord> entries = registry.ReadAll();
    for (size_t i = 0; i < workflows.size(); ++i)
    {
        const qint64 handle = qint64(reinterpret_cast<quintptr>(workflows[i].get()));
        const QString id = ImpOf(workflows[i].get())->Fields().Id;
        int found = 0;
        for (const ExecutingWorkflowRecord& entry : entries)
        {
            if (entry.WorkflowHandle != handle || entry.WorkflowId != id)
                continue;
            ++found;
            if (entry.ExitStatus != expected[i].status || entry.ErrorMessage != expected[i].message ||
                !SameIds(entry.ExecutingApplications, expected[i].applications) ||
                entry.HostProcessId != int(::getpid()))
            {
                std::fprintf(stderr, "entry %s: status %d (wanted %d), %d applications (wanted %d)\n",
                             qPrintable(id), entry.ExitStatus, expected[i].status,
                             int(entry.ExecutingApplications.size()), int(expected[i].applications.size()));
                return false;
            }
        }
        if (found != 1)
        {
            std::fprintf(stderr, "entry %s found %d times\n", qPrintable(id), found);
            return false;
        }
    }
    return true;
}

int Work(int index, int milliseconds)
{
    ExecutingRegistry registry(true);
    std::vector<std::unique_ptr<Workflow>> workflows;
    std::vector<Expected> expected(kEntries);
    for (int i = 0; i < kEntries; ++i)
    {
        auto workflow = std::make_unique<Workflow>();
        ImpOf(workflow.get())->Fields().Id = QStringLiteral("Load-%1-%2").arg(index).arg(i);
        ImpOf(workflow.get())->Fields().SourceFile =
            QStringLiteral("/tmp/load-%1-%2.workflow").arg(index).arg(i);
        // A lock that cannot be had in time fails the change; it is tried again, never counted.
        while (!registry.Add(workflow.get(), int(::getpid()), int(::getpid())))
            QThread::msleep(1);
        workflows.push_back(std::move(workflow));
    }
    if (!OwnEntriesIntact(registry, workflows, expected))
        return 1;

    long changes = 0;
    long failed = 0;
    long reads = 0;
    QElapsedTimer clock;
    clock.start();
    for (int round = 1; clock.elapsed() < milliseconds; ++round)
    {
        const int i = round % kEntries;
        Workflow* workflow = workflows[size_t(i)].get();
        bool done = false;
        switch (round % 3)
        {
        case 0:
            done = registry.SetExitStatus(workflow, round, QStringLiteral("round %1").arg(round));
            if (done)
                expected[size_t(i)] = {round, QStringLiteral("round %1").arg(round),
                                       expected[size_t(i)].applications};
            break;
        case 1:
        {
            const int application = 1000 + round % 5;
            done = registry.AddExecutingApplication(workflow, application);
            if (done && !expected[size_t(i)].applications.contains(application))
                expected[size_t(i)].applications.append(application);
            break;
        }
        default:
        {
            const int application = 1000 + (round / 3) % 5;
            done = registry.RemoveExecutingApplication(workflow, application);
            if (done)
                expected[size_t(i)].applications.removeAll(application);
            break;
        }
        }
        ++(done ? changes : failed);
        // Every process reads the whole list as well, as launchers and views do.
        registry.Enumerate(false, true);
        ++reads;
        if (!OwnEntriesIntact(registry, workflows, expected))
            return 1;
    }
    std::printf("%ld %ld %ld\n", changes, failed, reads);
    std::fflush(stdout);
    return 0;
}

int Hold()
{
    Platform::SharedSegment segment(ExecutingRegistry::SegmentKey(), ExecutingRegistry::SegmentSize);
    if (!segment.Attach(Platform::SharedSegment::Access::ReadWrite) && !segment.Create())
        return 1;
    if (!segment.Lock())
        return 1;
    std::puts("locked");
    std::fflush(stdout);
    for (;;)
        ::pause();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QString mode = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    if (mode == QLatin1String("work") && argc == 4)
        return Work(std::atoi(argv[2]), std::atoi(argv[3]));
    if (mode == QLatin1String("hold"))
        return Hold();
    return 2;
}
