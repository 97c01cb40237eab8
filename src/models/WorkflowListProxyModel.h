// SPDX-License-Identifier: MIT
#pragma once

#include "manager/WorkflowQuery.h"

#include <QHash>
#include <QSortFilterProxyModel>

#include <memory>

namespace Velmora::WorkflowCore {

class Workflow;
class WorkflowListModel;

// Filters and sorts a WorkflowListModel by workflow properties. Every filter entry must hold for a
// row to be shown; without entries a row is shown when its primary products name the host's
// current product. Sort keys apply in the order of their key texts.
class WorkflowListProxyModel : public QSortFilterProxyModel
{
    Q_OBJECT
public:
    WorkflowListProxyModel(const WorkflowFilterMap& filters, const WorkflowSortMap& sortKeys,
                           QObject* parent = nullptr);
    ~WorkflowListProxyModel() override;

    const WorkflowFilterMap& Filters() const { return m_filters; }
    const WorkflowSortMap& SortKeys() const { return m_sortKeys; }

    // Makes model the source and destroys it with the proxy; the model itself keeps no parent.
    void AdoptSourceModel(WorkflowListModel* model);

    // The source model's workflow behind a proxy row, or null.
    Workflow* WorkflowAtRow(int proxyRow) const;

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

private:
    WorkflowListModel* ListModel() const;
    Workflow* SourceWorkflow(int sourceRow) const;
    QString DisplayNames(const QString& productIds) const;

    WorkflowFilterMap m_filters;
    WorkflowSortMap m_sortKeys;
    std::unique_ptr<WorkflowListModel> m_ownedSource;
    // Display names by product-id text: a sort compares the same few product lists many times.
    // The product catalogue stays as it is while the manager lives; a reset of the rows (a
    // rescan or the manager's end) starts the cache afresh.
    mutable QHash<QString, QString> m_displayNames;
};

} // namespace Velmora::WorkflowCore
