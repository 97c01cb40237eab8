// SPDX-License-Identifier: MIT
#include "models/WorkflowListModel.h"

#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <QImage>
#include <QPixmap>

namespace Velmora::WorkflowCore {

WorkflowListModel::WorkflowListModel(QObject* parent)
    : QAbstractListModel(parent), m_manager(WorkflowManagerImp::Instance())
{
    if (!m_manager)
        return;
    m_manager->EnsureCatalogueLoaded();
    connect(m_manager, &WorkflowManagerImp::WorkflowAboutToBeInserted, this,
            &WorkflowListModel::WorkflowAboutToBeInserted);
    connect(m_manager, &WorkflowManagerImp::WorkflowAboutToBeRemoved, this,
            &WorkflowListModel::WorkflowAboutToBeRemoved);
    connect(m_manager, &WorkflowManagerImp::WorkflowInserted, this, &WorkflowListModel::WorkflowInserted);
    connect(m_manager, &WorkflowManagerImp::WorkflowRemoved, this, &WorkflowListModel::WorkflowRemoved);
    connect(m_manager, &WorkflowManagerImp::WorkflowModified, this, &WorkflowListModel::WorkflowModified);
    // A rescan empties the catalogue without the per-row signals: the views start over.
    connect(m_manager, &WorkflowManagerImp::CatalogueAboutToBeEmptied, this,
            &WorkflowListModel::beginResetModel);
    connect(m_manager, &WorkflowManagerImp::CatalogueEmptied, this, &WorkflowListModel::endResetModel);
}

WorkflowListModel::~WorkflowListModel() = default;

int WorkflowListModel::rowCount(const QModelIndex& parent) const
{
    Q_UNUSED(parent);
    return m_manager ? static_cast<int>(m_manager->Catalogue().size()) : 0;
}

Workflow* WorkflowListModel::WorkflowAt(int row) const
{
    if (!m_manager)
        return nullptr;
    const QList<Workflow*>& catalogue = m_manager->Catalogue();
    return row >= 0 && row < catalogue.size() ? catalogue.at(row) : nullptr;
}

QVariant WorkflowListModel::data(const QModelIndex& index, int role) const
{
    Workflow* workflow = WorkflowAt(index.row());
    if (!workflow)
        return QVariant();
    switch (role)
    {
    case Qt::DisplayRole:
        return ImpOf(workflow)->Fields().Name;
    case Qt::DecorationRole:
    {
        // An image that does not load is a null image, never an invalid value.
        const QPixmap pixmap(ImpOf(workflow)->GetImage(WorkflowImageAutomatic, 16));
        return pixmap.toImage();
    }
    default:
        return QVariant();
    }
}

void WorkflowListModel::WorkflowAboutToBeInserted(int row)
{
    beginInsertRows(QModelIndex(), row, row);
}

void WorkflowListModel::WorkflowAboutToBeRemoved(int row)
{
    beginRemoveRows(QModelIndex(), row, row);
}

void WorkflowListModel::WorkflowInserted(int row)
{
    // The catalogue sends the new count here, not the row; the begin call knew the row.
    Q_UNUSED(row);
    endInsertRows();
}

void WorkflowListModel::WorkflowRemoved(int row)
{
    Q_UNUSED(row);
    endRemoveRows();
}

void WorkflowListModel::WorkflowModified(int row)
{
    // -1 stands for a workflow outside the catalogue; like any row the catalogue does not have,
    // it changes nothing in the views.
    if (row < 0 || row >= rowCount())
        return;
    emit dataChanged(index(row, 0), index(row, 0));
}

} // namespace Velmora::WorkflowCore
