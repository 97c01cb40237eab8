// Feeds any text to the list proxy as its filter text (first line) and sort text (the rest), over
// a small real catalogue: the proxy shows exactly the workflows every parsed filter entry accepts,
// and the same texts always give the same rows in the same order.

#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "manager/ProductRules.h"
#include "manager/WorkflowQuery.h"
#include "models/WorkflowListProxyModel.h"

#include "FuzzSupport.h"
#include "ModelFixture.h"
#include "WideText.h"

#include <QGuiApplication>

#include <algorithm>
#include <memory>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowFuzz;
using namespace VmWorkflowTest;

namespace {

TestEnvironment* s_env = nullptr;
TestHost s_host;

std::unique_ptr<WorkflowListProxyModel> Proxy(const QString& filter, const QString& sort)
{
    return std::unique_ptr<WorkflowListProxyModel>(
        static_cast<WorkflowListProxyModel*>(WorkflowPrivate::GetWorkflowListModel(filter, sort)));
}

QList<Workflow*> Rows(const WorkflowListProxyModel& proxy)
{
    QList<Workflow*> rows;
    for (int row = 0; row < proxy.rowCount(); ++row)
    {
        rows << proxy.WorkflowAtRow(row);
        proxy.data(proxy.index(row, 0), Qt::DisplayRole);
    }
    return rows;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Never destroyed: the manager and its hub outlive every input, and an application object
    // destroyed at exit before them would pull the ground from under them.
    static QGuiApplication* application = new QGuiApplication(*argc, *argv);
    Q_UNUSED(application);
    QStandardPaths::setTestModeEnabled(true);
    s_env = new TestEnvironment;
    Check(s_env->Setup());
    Check(WriteProductsAndManifests(*s_env));
    const QString folder = s_env->Root() + QStringLiteral("/catalogue");
    Check(WriteSampleCatalogue(folder));
    Check(WorkflowManager::Initialize());
    s_host.currentProduct = QStringLiteral("prodA");
    WorkflowManager::GetInstance()->SetHostApplicationContext(&s_host);
    WorkflowManager::GetInstance()->SetWorkflowSearchPaths(Wide(folder));
    Check(CatalogueIds().size() == 6);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype cut = text.indexOf(QLatin1Char('\n'));
    const QString filter = cut < 0 ? text : text.left(cut);
    const QString sort = cut < 0 ? QString() : text.mid(cut + 1);

    const auto proxy = Proxy(filter, sort);
    Check(proxy != nullptr);
    const QList<Workflow*> rows = Rows(*proxy);

    const WorkflowFilterMap filters = ParseFilterText(filter);
    Check(proxy->Filters() == filters);
    Check(proxy->SortKeys() == ParseSortText(sort));
    if (!filters.isEmpty())
    {
        int expected = 0;
        for (Workflow* workflow : WorkflowManagerImp::Instance()->Catalogue())
        {
            bool all = true;
            for (auto it = filters.cbegin(); it != filters.cend() && all; ++it)
                all = WorkflowMatchesFilter(workflow, it.key(), it.value());
            expected += all ? 1 : 0;
            Check(!rows.contains(workflow) || all);
        }
        Check(rows.size() == expected);
    }
    for (Workflow* workflow : rows)
        Check(workflow != nullptr && rows.count(workflow) == 1);

    // The same texts give the same rows in the same order.
    const auto again = Proxy(filter, sort);
    const QList<Workflow*> rowsAgain = Rows(*again);
    // Element by element: comparing two empty lists with == hands a null pointer to memcmp in this Qt.
    Check(rowsAgain.size() == rows.size() && std::equal(rows.cbegin(), rows.cend(), rowsAgain.cbegin()));
    return 0;
}
