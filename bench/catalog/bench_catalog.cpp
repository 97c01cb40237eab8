// SPDX-License-Identifier: MIT
// Scanning a large catalogue and looking workflows up in it.
//
// Generates N workflow files of about 2 KB each (half templates, half user workflows made from
// them) in a temporary folder, scans them through the manager, and reports:
//   - the first scan, with nothing in the per-user index, and a later start of a fresh manager
//     over the same unchanged files, which the index answers; both with a warm page cache. The
//     first scan and the later start are each measured twice: in this process, whose heap the
//     earlier scans have already faulted in (in part for the first scan, wholly for the later
//     start), and in a new process (this program run again with --start), which must fault in
//     every page the catalogue's records take, as a real start does,
//   - peak resident memory growth per workflow,
//   - time per call of GetWorkflow(id, ""), FindWorkflow(name) and GetNewWorkflowName
//     at 100, 1,000 and 10,000 workflows.
// Usage: bench_catalog [largest count, default 10000]

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <sys/resource.h>
#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

long PeakResidentKilobytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

QByteArray Padding()
{
    QByteArray steps;
    for (int i = 0; steps.size() < 1500; ++i)
        steps += "            <Step Order=\"" + QByteArray::number(i) +
                 "\" Action=\"Collect the figures of part " + QByteArray::number(i) + "\"/>\n";
    return steps;
}

void WriteCatalogue(const QString& folder, int count)
{
    QDir().mkpath(folder);
    const QByteArray steps = Padding();
    for (int i = 0; i < count; ++i)
    {
        const bool isTemplate = i % 2 == 0;
        const QByteArray n = QByteArray::number(i);
        const QByteArray templ = QByteArray::number(i - i % 2);
        QByteArray text =
            "<?xml version=\"1.0\"?>\n<Workflows>\n    <Workflow Plugin=\"SamplePlugin\" IsTemplate=\"" +
            QByteArray(isTemplate ? "True" : "False") + "\" Id=\"Id_Flow" + n + "\" TemplateId=\"Id_Flow" +
            templ + "\" Name=\"Flow number " + n +
            "\" Description=\"A generated workflow for measuring the catalogue.\" "
            "PrimaryProduct=\"alpha\" TargetProduct=\"alpha:2016\" RequiredProducts=\"alpha &amp; beta\" "
            "CreatedDate=\"2016-01-01T00:00:00\">\n        <Settings>\n" +
            steps + "        </Settings>\n    </Workflow>\n</Workflows>\n";
        QFile file(QStringLiteral("%1/flow%2.workflow").arg(folder).arg(i, 6, 10, QLatin1Char('0')));
        file.open(QIODevice::WriteOnly);
        file.write(text);
        file.flush();
        // Installed workflows are old: a file changed within the last seconds is read again at
        // every start until it is older, however the index stands.
        file.setFileTime(QDateTime::currentDateTime().addDays(-2), QFileDevice::FileModificationTime);
    }
}

// The UTF-16 size of every text the catalogue's records hold.
qint64 TextBytes(const WorkflowManagerImp& manager)
{
    qint64 units = 0;
    for (Workflow* workflow : manager.Catalogue())
    {
        const WorkflowFields& m = ImpOf(workflow)->Fields();
        for (const QString* text :
             {&m.TemplateId, &m.Id, &m.HelpId, &m.Name, &m.Description, &m.TemplateImage, &m.ModifiedImage,
              &m.Tooltip, &m.Keywords, &m.Tag, &m.UIFile, &m.SourceFile, &m.Plugin, &m.PrimaryProduct,
              &m.RequiredProducts, &m.TargetProduct, &m.RequiredProductsDisplayText, &m.Introduction,
              &m.XlfFile})
            units += text->size();
        units += m.Settings.size();
        for (const QString& image : m.TemplateImages)
            units += image.size();
        for (const QString& image : m.ModifiedImages)
            units += image.size();
    }
    return units * 2;
}

long MinorPageFaults()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

// The start of a new process over a folder the index already answers for: prints the
// milliseconds of the scan and the pages it faulted in.
int RunStart(const QString& folder)
{
    WorkflowManager::Initialize();
    WorkflowManagerImp* manager = ImpOf(WorkflowManager::GetInstance());
    const long faultsBefore = MinorPageFaults();
    QElapsedTimer timer;
    timer.start();
    manager->SetWorkflowSearchPaths(folder);
    const qint64 us = timer.nsecsElapsed() / 1000;
    std::printf("%lld %ld %lld\n", static_cast<long long>(us), MinorPageFaults() - faultsBefore,
                static_cast<long long>(manager->LastScanFilesRead()));
    WorkflowManager::Uninitialize();
    return 0;
}

// Starts in new processes over the folder: median milliseconds of five, with the pages the
// median one faulted in, and every start's milliseconds. The machine's own work now and then
// slows a start by half; five starts keep one or two such from setting the figure. A first start gets an
// empty cache folder of its own each time, so that no index answers it; a later start shares this process's
// cache folder, whose index does.
constexpr int kNewProcessStarts = 5;

void MeasureStartInNewProcess(const QString& folder, int count, bool first)
{
    std::vector<std::pair<double, long>> starts;
    long filesRead = 0;
    for (int i = 0; i < kNewProcessStarts; ++i)
    {
        QProcess child;
        QTemporaryDir cache;
        if (first)
        {
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert(QStringLiteral("XDG_CACHE_HOME"), cache.path());
            child.setProcessEnvironment(environment);
        }
        child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--start"), folder});
        if (!child.waitForFinished(120000) || child.exitCode() != 0)
        {
            std::printf("%s in a new process: failed\n", first ? "first scan" : "later start");
            return;
        }
        const QList<QByteArray> fields = child.readAllStandardOutput().trimmed().split(' ');
        if (fields.size() != 3)
            return;
        starts.emplace_back(fields.at(0).toDouble() / 1000.0, fields.at(1).toLong());
        filesRead += fields.at(2).toLong();
    }
    QString each;
    for (const auto& start : starts)
        each += QStringLiteral(" %1").arg(start.first, 0, 'f', 1);
    std::sort(starts.begin(), starts.end());
    const auto& median = starts[starts.size() / 2];
    std::printf("%s in a new process: %.0f ms = %.1f us per file (median of %d), %ld pages faulted in, "
                "%ld files read; each start:%s ms\n",
                first ? "first scan" : "later start", median.first, median.first * 1000.0 / count,
                kNewProcessStarts, median.second, filesRead, qPrintable(each));
}

template <typename Call> double NanosecondsPerCall(int calls, Call call)
{
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < calls; ++i)
        call(i);
    return double(timer.nsecsElapsed()) / calls;
}

void Measure(const QString& root, int count, bool reportScan)
{
    const QString folder = QStringLiteral("%1/n%2").arg(root).arg(count);
    WriteCatalogue(folder, count);
    WorkflowManager::Initialize();
    WorkflowManagerImp* manager = ImpOf(WorkflowManager::GetInstance());

    const long before = PeakResidentKilobytes();
    QElapsedTimer timer;
    timer.start();
    manager->SetWorkflowSearchPaths(folder); // first scan warms the page cache
    const qint64 coldMs = timer.elapsed();
    const long after = PeakResidentKilobytes();
    const double textKilobytes = double(TextBytes(*manager)) / 1024.0;
    // A rescan empties the catalogue first (templates write their settings as they go), then
    // reads everything again; a fresh manager reads into an empty catalogue.
    timer.restart();
    manager->SetWorkflowSearchPaths(folder + QLatin1Char(';'));
    const qint64 rescanMs = timer.elapsed();
    timer.restart();
    WorkflowManager::Uninitialize();
    const qint64 teardownMs = timer.elapsed();
    WorkflowManager::Initialize();
    manager = ImpOf(WorkflowManager::GetInstance());
    timer.restart();
    manager->SetWorkflowSearchPaths(folder);
    const qint64 warmMs = timer.elapsed();
    const int catalogued = static_cast<int>(manager->Catalogue().size());
    if (reportScan)
    {
        MeasureStartInNewProcess(folder, count, true);
        MeasureStartInNewProcess(folder, count, false);
    }

    if (reportScan)
    {
        std::printf(
            "scan of %d files: first %lld ms; later start %lld ms = %.1f ms per 1,000 files; rescan with "
            "teardown %lld ms; teardown alone %lld ms; peak memory growth %.2f KB per workflow\n"
            "memory: peak growth %.2f KB per workflow for %.2f KB of UTF-16 text held = %.2fx the text\n",
            count, static_cast<long long>(coldMs), static_cast<long long>(warmMs), warmMs * 1000.0 / count,
            static_cast<long long>(rescanMs), static_cast<long long>(teardownMs),
            double(after - before) / catalogued, double(after - before) / catalogued,
            textKilobytes / catalogued, double(after - before) / textKilobytes);
    }
    const int calls = 20000;
    volatile int sink = 0;
    const double byId = NanosecondsPerCall(calls, [&](int i) {
        const QString id = QStringLiteral("ID_FLOW%1").arg((i * 7919) % count);
        sink += manager->FindWorkflow(id, QString()) != nullptr;
    });
    const double byName = NanosecondsPerCall(calls, [&](int i) {
        const QString name = QStringLiteral("flow NUMBER %1").arg((i * 7919) % count);
        sink += WorkflowPrivate::FindWorkflow(name) != nullptr;
    });
    const double newName = NanosecondsPerCall(calls / 10, [&](int i) {
        sink += WorkflowPrivate::GetNewWorkflowName(QStringLiteral("Flow number %1").arg(i % count)).size();
    });
    std::printf("%6d workflows: GetWorkflow(id) %.0f ns, FindWorkflow(name) %.0f ns, GetNewWorkflowName %.0f "
                "ns per call\n",
                catalogued, byId, byName, newName);
    WorkflowManager::Uninitialize();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc > 2 && qstrcmp(argv[1], "--start") == 0)
        return RunStart(QString::fromLocal8Bit(argv[2]));
    const int largest = argc > 1 ? std::atoi(argv[1]) : 10000;
    QTemporaryDir root;
    // Keep the user's own folders out of the measurement.
    qputenv("XDG_DATA_HOME", QFile::encodeName(root.path() + QStringLiteral("/data")));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(root.path() + QStringLiteral("/cache")));
    for (int count : {100, 1000, largest})
        Measure(root.path(), count, count == largest);
    return 0;
}
