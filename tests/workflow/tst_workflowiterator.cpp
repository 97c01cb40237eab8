// SPDX-License-Identifier: MIT
// Both exported iterators share one walk over a snapshot taken when they are made.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "execution/ExecutingWorkflowRecord.h"
#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowIteratorImp.h"

#include "TestEnvironment.h"
#include "WideText.h"

#include <QtTest>

#include <memory>

using namespace Velmora::WorkflowCore;
using VmWorkflowTest::Wide;

namespace {

Workflow* AddNamed(const QString& name)
{
    auto* workflow = new Workflow;
    workflow->SetName(Wide(name));
    WorkflowPrivate::AddWorkflow(workflow);
    return workflow;
}

ExecutingWorkflow* MakeRun(const QString& id)
{
    auto* record = new ExecutingWorkflowRecord;
    record->WorkflowId = id;
    return FacadeAccess::MakeExecutingWorkflow(record);
}

} // namespace

class tst_WorkflowIterator : public QObject
{
    Q_OBJECT
private:
    VmWorkflowTest::TestEnvironment m_env;

private slots:
    void initTestCase() { QVERIFY(m_env.Setup()); }

    void init()
    {
        QVERIFY(WorkflowManager::Initialize());
        // An empty search path and a user folder without files: the catalogue starts empty.
        ImpOf(WorkflowManager::GetInstance())->EnsureCatalogueLoaded();
    }
    void cleanup() { QVERIFY(WorkflowManager::Uninitialize()); }

    void emptySnapshotNeverMoves()
    {
        std::unique_ptr<WorkflowIterator> it(WorkflowManager::GetInstance()->GetWorkflows());
        QVERIFY(!it->MoveNext());
        QVERIFY(!it->MoveNext());
        QVERIFY(!it->GetCurrent());
    }

    void walksTheCatalogueInOrder()
    {
        Workflow* a = AddNamed(QStringLiteral("a"));
        Workflow* b = AddNamed(QStringLiteral("b"));
        std::unique_ptr<WorkflowIterator> it(WorkflowManager::GetInstance()->GetWorkflows());
        QVERIFY(it->MoveNext());
        QCOMPARE(it->GetCurrent(), a);
        QVERIFY(it->MoveNext());
        QCOMPARE(it->GetCurrent(), b);
        QVERIFY(!it->MoveNext());
        QVERIFY(!it->GetCurrent());
    }

    void twoMovesPastTheEndBothFail()
    {
        AddNamed(QStringLiteral("only"));
        std::unique_ptr<WorkflowIterator> it(WorkflowManager::GetInstance()->GetWorkflows());
        QVERIFY(it->MoveNext());
        QVERIFY(!it->MoveNext());
        QVERIFY(!it->MoveNext());
        QVERIFY(!it->GetCurrent());
    }

    void resetAfterTheEndStartsAgain()
    {
        Workflow* first = AddNamed(QStringLiteral("first"));
        AddNamed(QStringLiteral("second"));
        std::unique_ptr<WorkflowIterator> it(WorkflowManager::GetInstance()->GetWorkflows());
        while (it->MoveNext())
        {
        }
        QVERIFY(!it->MoveNext());
        it->Reset();
        QVERIFY(it->MoveNext());
        QCOMPARE(it->GetCurrent(), first);
    }

    void snapshotIgnoresLaterInsertions()
    {
        Workflow* a = AddNamed(QStringLiteral("a"));
        std::unique_ptr<WorkflowIterator> it(WorkflowManager::GetInstance()->GetWorkflows());
        AddNamed(QStringLiteral("later"));
        QVERIFY(it->MoveNext());
        QCOMPARE(it->GetCurrent(), a);
        QVERIFY(!it->MoveNext());
        it->Reset();
        QVERIFY(it->MoveNext());
        QVERIFY(!it->MoveNext());
    }

    void deletingTheIteratorKeepsTheWorkflows()
    {
        Workflow* a = AddNamed(QStringLiteral("kept"));
        delete WorkflowManager::GetInstance()->GetWorkflows();
        QCOMPARE(WorkflowPrivate::IndexOfWorkflow(a), 0);
        QCOMPARE(WorkflowPrivate::GetWorkflow(0), a);
    }

    void executingIteratorWalksAndOwnsItsRuns()
    {
        QList<ExecutingWorkflow*> runs{MakeRun(QStringLiteral("one")), MakeRun(QStringLiteral("two"))};
        auto* it = FacadeAccess::MakeIterator(new ExecutingWorkflowIteratorImp(runs));
        QVERIFY(it->MoveNext());
        QCOMPARE(it->GetCurrent(), runs.at(0));
        QVERIFY(it->MoveNext());
        QCOMPARE(it->GetCurrent(), runs.at(1));
        QVERIFY(!it->MoveNext());
        QVERIFY(!it->MoveNext());
        it->Reset();
        QVERIFY(it->MoveNext());
        QCOMPARE(RecordOf(it->GetCurrent())->WorkflowId, QStringLiteral("one"));
        // The leak checker proves that the runs and their records go with the iterator.
        delete it;
    }

    void executingIteratorFromManagerIsEmptyWithoutRuns()
    {
        std::unique_ptr<ExecutingWorkflowIterator> it(
            WorkflowManager::GetInstance()->GetExecutingWorkflows(true));
        QVERIFY(!it->MoveNext());
        QVERIFY(!it->GetCurrent());
    }
};

QTEST_GUILESS_MAIN(tst_WorkflowIterator)
#include "tst_workflowiterator.moc"
