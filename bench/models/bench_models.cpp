// SPDX-License-Identifier: MIT
// Filtering and sorting a large catalogue through the list proxy.
//
// Adds N generated workflows (default 10,000) to the catalogue, with four products of which two
// are installed, and reports for a proxy with filter "IsExecutable=true" and sort
// "TargetProduct:1,Name:0":
//   - milliseconds for the first full filter and sort (creating the proxy over a new list model),
//   - milliseconds for the re-filter and re-sort after one WorkflowModified (median of 200),
//   - the same two figures for the default order (empty sort text);
// and the milliseconds of the same filter and sort asked of the manager (GetWorkflows), median of 7.
// Usage: bench_models [count, default 10000]

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "util/TextOut.h"
#include "workflow/WorkflowImp.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSortFilterProxyModel>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

class BenchHost : public HostApplicationContext
{
public:
    bool CanExecuteWorkflow(Workflow*) override { return true; }
    void AddLaunchArguments(Workflow*, WorkflowArguments*) override {}
    int GetCurrentProductId(WideChar* buffer, int size) override
    {
        return CopyTextOut(QStringLiteral("alpha"), buffer, size);
    }
    bool BeforeExecuteWorkflow(Workflow*) override { return true; }
};

bool Write(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

// Private per-user and machine-wide folders with a product catalogue and two installed products.
bool SetUpEnvironment(const QString& root)
{
    qputenv("XDG_DATA_HOME", QFile::encodeName(root + QStringLiteral("/data")));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(root + QStringLiteral("/cache")));
    qputenv("XDG_CONFIG_DIRS", QFile::encodeName(root + QStringLiteral("/configdirs")));
    qputenv("XDG_DATA_DIRS", QFile::encodeName(root + QStringLiteral("/datadirs")));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(root + QStringLiteral("/runtime")));
    QDir().mkpath(root + QStringLiteral("/runtime"));
    QFile::setPermissions(root + QStringLiteral("/runtime"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QString products = root + QStringLiteral("/products");
    return Write(products + QStringLiteral("/Products.xml"),
                 "<Products>"
                 "<Product Id=\"alpha\" Name=\"Alpha Studio\" OstrelName=\"Id_Alpha\"/>"
                 "<Product Id=\"beta\" Name=\"Beta Ledger\" OstrelName=\"Id_Beta\"/>"
                 "<Product Id=\"gamma\" Name=\"Gamma Viewer\" OstrelName=\"Id_Gamma\"/>"
                 "<Product Id=\"delta\" Name=\"Delta Archive\" OstrelName=\"Id_Delta\"/>"
                 "</Products>") &&
           Write(root + QStringLiteral("/configdirs/Velmora/Workflow/2015.0.conf"),
                 "[General]\nProductsXmlFileSearchPath=" + QFile::encodeName(products) + "\n") &&
           Write(root + QStringLiteral("/datadirs/Velmora/Applications/alpha.xml"),
                 "<Application Id=\"Id_Alpha\" Version=\"2016.1\" Executable=\"/bin/true\" InfoId=\"1\"/>") &&
           Write(root + QStringLiteral("/datadirs/Velmora/Applications/gamma.xml"),
                 "<Application Id=\"Id_Gamma\" Version=\"2017.0\" Executable=\"/bin/true\" InfoId=\"3\"/>");
}

void AddWorkflows(int count)
{
    const QStringList products = {QStringLiteral("alpha"), QStringLiteral("beta"), QStringLiteral("gamma"),
                                  QStringLiteral("delta")};
    const QStringList required = {QStringLiteral("alpha"), QStringLiteral("beta"),
                                  QStringLiteral("alpha & gamma"), QStringLiteral("(alpha | beta) & delta"),
                                  QStringLiteral("gamma | delta")};
    for (int i = 0; i < count; ++i)
    {
        auto* workflow = new Workflow;
        WorkflowFields& fields = ImpOf(workflow)->Fields();
        fields.Id = QStringLiteral("Id_Flow%1").arg(i);
        fields.Name = QStringLiteral("Flow %1").arg((i * 7919) % count);
        fields.IsTemplate = i % 2 == 0;
        fields.TemplateId = QStringLiteral("Id_Flow%1").arg(i - i % 2);
        fields.PrimaryProduct = products.at(i % 4);
        fields.TargetProduct = products.at((i / 3) % 4) + QStringLiteral(":2016");
        fields.RequiredProducts = required.at(i % 5);
        WorkflowPrivate::AddWorkflow(workflow);
    }
}

struct Figures
{
    double firstMs = 0;
    double modifiedMedianMs = 0;
    double modifiedWorstMs = 0;
    int rows = 0;
    bool orderKept = false;
};

Figures Measure(const QString& filter, const QString& sort)
{
    Figures figures;
    QElapsedTimer timer;
    timer.start();
    std::unique_ptr<QSortFilterProxyModel> proxy(WorkflowPrivate::GetWorkflowListModel(filter, sort));
    figures.rows = proxy->rowCount();
    figures.firstMs = double(timer.nsecsElapsed()) / 1e6;

    WorkflowManagerImp* manager = WorkflowManagerImp::Instance();
    const QList<Workflow*>& catalogue = manager->Catalogue();
    std::vector<double> samples;
    for (int i = 0; i < 200; ++i)
    {
        // A rename that moves the row, as an editor would make it.
        const int row = int((i * 4999LL) % catalogue.size());
        Workflow* workflow = catalogue.at(row);
        ImpOf(workflow)->Fields().Name = QStringLiteral("Renamed %1").arg(i);
        timer.restart();
        emit manager->WorkflowModified(row);
        samples.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    // The renamed rows must have moved: with a sort by name first, names never decrease.
    figures.orderKept = true;
    for (int row = 1; row < proxy->rowCount() && sort.startsWith(QLatin1String("TargetProduct")); ++row)
    {
        if (QString::localeAwareCompare(proxy->index(row - 1, 0).data().toString(),
                                        proxy->index(row, 0).data().toString()) > 0)
            figures.orderKept = false;
    }
    std::sort(samples.begin(), samples.end());
    figures.modifiedMedianMs = samples.at(samples.size() / 2);
    figures.modifiedWorstMs = samples.back();
    return figures;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int count = argc > 1 ? std::max(1, QByteArray(argv[1]).toInt()) : 10000;
    QTemporaryDir root;
    if (!root.isValid() || !SetUpEnvironment(root.path()))
    {
        std::fprintf(stderr, "bench_models: the temporary folders could not be prepared\n");
        return 1;
    }
    WorkflowManager::Initialize();
    BenchHost host;
    WorkflowManager::GetInstance()->SetHostApplicationContext(&host);
    // Load the (empty) catalogue first, so that no later scan replaces what is added below.
    QDir().mkpath(root.path() + QStringLiteral("/workflows"));
    ImpOf(WorkflowManager::GetInstance())->SetWorkflowSearchPaths(root.path() + QStringLiteral("/workflows"));
    AddWorkflows(count);

    const Figures given =
        Measure(QStringLiteral("IsExecutable=true"), QStringLiteral("TargetProduct:1,Name:0"));
    std::printf(
        "%d workflows, filter \"IsExecutable=true\", sort \"TargetProduct:1,Name:0\": %d rows shown\n", count,
        given.rows);
    std::printf("  first full filter and sort:        %8.2f ms\n", given.firstMs);
    std::printf("  re-filter after WorkflowModified:  %8.3f ms median, %.3f ms worst of 200\n",
                given.modifiedMedianMs, given.modifiedWorstMs);
    std::printf("  names in order after 200 renames:  %s\n", given.orderKept ? "yes" : "NO");

    const Figures fallback = Measure(QStringLiteral("IsExecutable=true"), QString());
    std::printf("same filter, default order: %d rows shown\n", fallback.rows);
    std::printf("  first full filter and sort:        %8.2f ms\n", fallback.firstMs);
    std::printf("  re-filter after WorkflowModified:  %8.3f ms median, %.3f ms worst of 200\n",
                fallback.modifiedMedianMs, fallback.modifiedWorstMs);

    const Figures filterOnly = Measure(QStringLiteral("IsExecutable=true"), QStringLiteral("Unknown:0"));
    std::printf("same filter, a sort key that leaves every row equal: %d rows shown\n", filterOnly.rows);
    std::printf("  first full filter and sort:        %8.2f ms\n", filterOnly.firstMs);

    // The same question asked of the manager itself, the way a tool lists the catalogue.
    std::vector<double> queries;
    int listed = 0;
    const std::u16string filterText = u"IsExecutable=true";
    const std::u16string sortText = u"TargetProduct:1,Name:0";
    for (int i = 0; i < 7; ++i)
    {
        QElapsedTimer timer;
        timer.start();
        std::unique_ptr<WorkflowIterator> it(WorkflowManager::GetInstance()->GetWorkflows(
            reinterpret_cast<const WideChar*>(filterText.c_str()),
            reinterpret_cast<const WideChar*>(sortText.c_str())));
        listed = 0;
        while (it->MoveNext())
            ++listed;
        queries.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::sort(queries.begin(), queries.end());
    std::printf("GetWorkflows(\"IsExecutable=true\", \"TargetProduct:1,Name:0\"): %d workflows, %.2f ms "
                "median of %zu "
                "(fastest %.2f)\n",
                listed, queries.at(queries.size() / 2), queries.size(), queries.front());

    WorkflowManager::GetInstance()->SetHostApplicationContext(nullptr);
    WorkflowManager::Uninitialize();
    return 0;
}
