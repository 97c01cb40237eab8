// SPDX-License-Identifier: MIT
#pragma once

#include <QAbstractListModel>
#include <QPointer>

namespace Velmora::WorkflowCore {

class Workflow;
class WorkflowManagerImp;

// One row per workflow of the manager's catalogue, in catalogue order. The model holds no rows of
// its own: it answers from the catalogue and follows the catalogue's signals.
class WorkflowListModel : public QAbstractListModel
{
    Q_OBJECT
public:
    // Follows the singleton's catalogue, loading it first so that no later query of a view ever
    // starts a scan; without a singleton the model stays empty.
    explicit WorkflowListModel(QObject* parent = nullptr);
    ~WorkflowListModel() override;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

    // The catalogue's workflow at that row, or null outside the catalogue.
    Workflow* WorkflowAt(int row) const;
    WorkflowManagerImp* Manager() const { return m_manager; }

public Q_SLOTS:
    void WorkflowAboutToBeInserted(int row);
    void WorkflowAboutToBeRemoved(int row);
    void WorkflowInserted(int row);
    void WorkflowRemoved(int row);
    void WorkflowModified(int row);

private:
    QPointer<WorkflowManagerImp> m_manager;
};

} // namespace Velmora::WorkflowCore
