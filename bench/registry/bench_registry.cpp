// SPDX-License-Identifier: MIT
// The executing-workflow registry in its shared segment: microseconds per enumeration and per
// change with 0, 10 and 100 entries, beside the floor of taking the lock, copying the whole
// segment out and letting go, measured in the same run.
//   - enumeration: Enumerate(launchedByThisProcessOnly = true, includeFinished = false), every
//     entry launched by this process and running, so every entry is parsed, checked and copied;
//     once with all entries on one live host, once with each on a host process of its own;
//   - change: SetExitStatus of the last entry (status 0, so the list keeps its shape).
// Usage: bench_registry [iterations, default 20000]

#include <VmWorkflowCore/Workflow.h>

#include "execution/ExecutingRegistry.h"
#include "platform/SharedSegment.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <csignal>
#include <cstdio>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

template <typename Work> double MicrosecondsPerCall(int iterations, Work work)
{
    for (int i = 0; i < iterations / 10; ++i)
        work(i);
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < iterations; ++i)
        work(i);
    return double(timer.nsecsElapsed()) / 1000.0 / iterations;
}

// Children that only wait, to stand for host processes that are alive.
std::vector<pid_t> StartIdleProcesses(int count)
{
    std::vector<pid_t> children;
    for (int i = 0; i < count; ++i)
    {
        const pid_t child = ::fork();
        if (child == 0)
        {
            ::pause();
            ::_exit(0);
        }
        if (child > 0)
            children.push_back(child);
    }
    return children;
}

void StopProcesses(const std::vector<pid_t>& children)
{
    for (pid_t child : children)
        ::kill(child, SIGKILL);
    for (pid_t child : children)
        ::waitpid(child, nullptr, 0);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int iterations = argc > 1 ? std::max(100, atoi(argv[1])) : 20000;
    QTemporaryDir runtime;
    if (!runtime.isValid())
        return 1;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    // The workflows made here are templates, which keep their per-user choices when destroyed:
    // those go to the temporary folder, never to the user's own settings file.
    qputenv("XDG_DATA_HOME", QFile::encodeName(runtime.path() + QStringLiteral("/data")));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(runtime.path() + QStringLiteral("/cache")));
    const int self = static_cast<int>(::getpid());

    std::printf("registry segment of %d bytes, %d iterations each\n", ExecutingRegistry::SegmentSize,
                iterations);
    std::printf("%-8s %-12s %14s %14s %14s\n", "entries", "hosts", "enumerate us", "change us", "floor us");
    for (int count : {0, 10, 100})
    {
        for (bool ownHosts : {false, true})
        {
            if (count == 0 && ownHosts)
                continue;
            QFile::remove(runtime.path() + QLatin1Char('/') + ExecutingRegistry::SegmentKey());
            ExecutingRegistry registry(true);
            std::vector<std::unique_ptr<Workflow>> workflows;
            const std::vector<pid_t> hosts = ownHosts ? StartIdleProcesses(count) : std::vector<pid_t>();
            for (int i = 0; i < count; ++i)
            {
                workflows.push_back(std::make_unique<Workflow>());
                WorkflowFields& fields = ImpOf(workflows.back().get())->Fields();
                fields.Id = QStringLiteral("Id_Workflow_%1").arg(i);
                fields.SourceFile =
                    QStringLiteral("/home/user/.local/share/Velmora/Workflows/Workflow %1.workflow").arg(i);
                const int host = ownHosts && i < int(hosts.size()) ? int(hosts[size_t(i)]) : self;
                if (!registry.Add(workflows.back().get(), host, self) ||
                    !registry.AddExecutingApplication(workflows.back().get(), 4000 + i))
                {
                    std::printf("could not fill the registry\n");
                    return 1;
                }
            }
            int listed = 0;
            const double enumerate = MicrosecondsPerCall(
                iterations, [&](int) { listed = static_cast<int>(registry.Enumerate(true, false).size()); });
            if (listed != count)
            {
                std::printf("enumeration listed %d of %d entries\n", listed, count);
                return 1;
            }
            double change = 0;
            if (count > 0)
            {
                Workflow* last = workflows.back().get();
                const QString messages[2] = {QStringLiteral("running"), QStringLiteral("still running")};
                bool ok = true;
                change = MicrosecondsPerCall(
                    iterations, [&](int i) { ok = registry.SetExitStatus(last, 0, messages[i % 2]) && ok; });
                if (!ok)
                {
                    std::printf("a change failed\n");
                    return 1;
                }
            }
            // The floor: the same lock and whole-segment copy that every read and change pays.
            Platform::SharedSegment segment(ExecutingRegistry::SegmentKey(), ExecutingRegistry::SegmentSize);
            segment.Attach(Platform::SharedSegment::Access::ReadOnly);
            QByteArray copy(ExecutingRegistry::SegmentSize, '\0');
            const double floor = MicrosecondsPerCall(iterations, [&](int) {
                segment.Lock();
                segment.CopyOut(copy.data());
                segment.Unlock();
            });
            StopProcesses(hosts);
            if (count > 0)
                std::printf("%-8d %-12s %14.2f %14.2f %14.2f\n", count, ownHosts ? "one each" : "one for all",
                            enumerate, change, floor);
            else
                std::printf("%-8d %-12s %14.2f %14s %14.2f\n", count, "-", enumerate, "-", floor);
        }
    }
    return 0;
}
