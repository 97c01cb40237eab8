// SPDX-License-Identifier: MIT
#include "models/WorkflowListProxyModel.h"

#include "manager/WorkflowManagerImp.h"
#include "models/WorkflowListModel.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <algorithm>

namespace Velmora::WorkflowCore {

namespace {

// The room a host has for its current product id, terminator included.
constexpr int kCurrentProductBufferSize = 260;

QString CurrentProductId(HostApplicationContext* context)
{
    WideChar buffer[kCurrentProductBufferSize] = {};
    context->GetCurrentProductId(buffer, kCurrentProductBufferSize);
    // Whatever the host wrote counts as it stands, up to the terminator or the end of the buffer.
    const WideChar* end = std::find(buffer, buffer + kCurrentProductBufferSize, WideChar(0));
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(buffer), end - buffer);
}

} // namespace

WorkflowListProxyModel::WorkflowListProxyModel(const WorkflowFilterMap& filters,
                                               const WorkflowSortMap& sortKeys, QObject* parent)
    : QSortFilterProxyModel(parent), m_filters(filters), m_sortKeys(sortKeys)
{
    setSortCaseSensitivity(Qt::CaseInsensitive);
    setDynamicSortFilter(true);
    // The sort keys are the proxy's order: rows are sorted from the start, not only once a view
    // asks for it.
    sort(0, Qt::AscendingOrder);
    connect(this, &QAbstractItemModel::modelAboutToBeReset, this, [this] { m_displayNames.clear(); });
}

WorkflowListProxyModel::~WorkflowListProxyModel()
{
    if (m_ownedSource)
        setSourceModel(nullptr);
}

void WorkflowListProxyModel::AdoptSourceModel(WorkflowListModel* model)
{
    setSourceModel(model);
    m_ownedSource.reset(model);
}

WorkflowListModel* WorkflowListProxyModel::ListModel() const
{
    return qobject_cast<WorkflowListModel*>(sourceModel());
}

Workflow* WorkflowListProxyModel::SourceWorkflow(int sourceRow) const
{
    WorkflowListModel* model = ListModel();
    return model ? model->WorkflowAt(sourceRow) : nullptr;
}

Workflow* WorkflowListProxyModel::WorkflowAtRow(int proxyRow) const
{
    const QModelIndex source = mapToSource(index(proxyRow, 0));
    return source.isValid() ? SourceWorkflow(source.row()) : nullptr;
}

QString WorkflowListProxyModel::DisplayNames(const QString& productIds) const
{
    const auto cached = m_displayNames.constFind(productIds);
    if (cached != m_displayNames.constEnd())
        return *cached;
    WorkflowListModel* model = ListModel();
    WorkflowManagerImp* manager = model ? model->Manager() : nullptr;
    if (!manager)
        return productIds;
    return *m_displayNames.insert(productIds, manager->ProductDisplayNames(productIds));
}

bool WorkflowListProxyModel::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const
{
    Workflow* workflow = SourceWorkflow(sourceRow);
    WorkflowManagerImp* manager = workflow ? ListModel()->Manager() : nullptr;
    HostApplicationContext* context = manager ? manager->GetHostApplicationContext() : nullptr;
    if (!context)
        return QSortFilterProxyModel::filterAcceptsRow(sourceRow, sourceParent);

    const QString currentProduct = CurrentProductId(context);
    if (m_filters.isEmpty())
        return manager->PassesFilterEntry(workflow, QStringLiteral("PrimaryProduct"), currentProduct);
    return manager->PassesFilter(workflow, m_filters);
}

bool WorkflowListProxyModel::lessThan(const QModelIndex& left, const QModelIndex& right) const
{
    Workflow* a = SourceWorkflow(left.row());
    Workflow* b = SourceWorkflow(right.row());
    if (!a || !b)
        return QSortFilterProxyModel::lessThan(left, right);

    const ProductNamesFunction names = [this](const QString& ids) { return DisplayNames(ids); };
    if (!m_sortKeys.isEmpty())
    {
        for (auto it = m_sortKeys.cbegin(); it != m_sortKeys.cend(); ++it)
        {
            const int order = CompareWorkflowsByKey(a, b, it.key(), names);
            if (order != 0)
                return it.value() ? order < 0 : order > 0;
        }
        return false;
    }

    const WorkflowFields& x = ImpOf(a)->Fields();
    const WorkflowFields& y = ImpOf(b)->Fields();
    const int targets =
        QString::localeAwareCompare(DisplayNames(x.TargetProduct), DisplayNames(y.TargetProduct));
    if (targets != 0)
        return targets < 0;
    if (x.IsTemplate != y.IsTemplate)
        return x.IsTemplate;
    return QString::localeAwareCompare(x.Name, y.Name) < 0;
}

} // namespace Velmora::WorkflowCore
