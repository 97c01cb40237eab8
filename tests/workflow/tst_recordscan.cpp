// SPDX-License-Identifier: MIT
// A record that asks the catalogue about its template or tells it about a change, in the middle
// of one of its own members, must never be destroyed by that question: the catalogue is not
// rebuilt under a record's feet. Run under AddressSanitizer, a use after free here is reported.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <QtTest>

#include <memory>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

WorkflowManagerImp* Imp()
{
    return ImpOf(WorkflowManager::GetInstance());
}

} // namespace

class tst_RecordScan : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    QTemporaryDir m_dir;
    QString Path(const QString& name) const { return m_dir.filePath(name); }

    // A user workflow read from its file and handed to the catalogue before anything loaded it.
    Workflow* AddedBeforeFirstLoad()
    {
        auto* workflow = new Workflow;
        if (!workflow->Load(Wide(Path(QStringLiteral("search/mine.workflow"))), Wide(QString())))
        {
            delete workflow;
            return nullptr;
        }
        WorkflowPrivate::AddWorkflow(workflow);
        return workflow;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(m_dir.isValid());
        QVERIFY(WriteFile(
            Path(QStringLiteral("search/template.workflow")),
            WorkflowDocument(WorkflowElement(R"(Id="Tpl" Name="Template" Description="from template")"))));
        QVERIFY(WriteFile(
            Path(QStringLiteral("search/mine.workflow")),
            WorkflowDocument(WorkflowElement(
                R"(Id="Mine" Name="Mine" IsTemplate="False" TemplateId="Tpl" TemplateImage="none.png")"))));
    }
    void init() { QVERIFY(WorkflowManager::Initialize()); }
    void cleanup() { QVERIFY(WorkflowManager::Uninitialize()); }

    void membersOfARecordAddedBeforeTheFirstLoad()
    {
        // The search paths are set without a scan; the first lookup would scan.
        QVERIFY(!Imp()->IsCatalogueLoaded());
        for (int member = 0; member < 4; ++member)
        {
            Workflow* workflow = AddedBeforeFirstLoad();
            QVERIFY(workflow);
            QVERIFY(WorkflowPrivate::IndexOfWorkflow(workflow) >= 0);
            Workflow other;
            std::unique_ptr<Workflow> clone;
            switch (member)
            {
            case 0:
                workflow->Reset();
                break;
            case 1:
                workflow->CopyFrom(&other);
                break;
            case 2:
                clone.reset(workflow->Clone());
                break;
            case 3:
                QCOMPARE(ReadText([&](WideChar* b, int n) {
                             return workflow->GetImage(WorkflowImageTemplate, 16, b, n);
                         }),
                         QStringLiteral("none.png"));
                break;
            }
            // Still the catalogue's, still alive.
            QVERIFY2(WorkflowPrivate::IndexOfWorkflow(workflow) >= 0, qPrintable(QString::number(member)));
        }
    }

    void membersOfARecordWhenThereIsNothingToScan()
    {
        // Without search paths and without a user folder a scan finds nothing; asking again must
        // not rebuild the catalogue each time, taking the record that asks with it.
        const QString userFolder = Imp()->UserWorkflowFolder();
        QVERIFY(Uninitialize());
        QVERIFY(WriteFile(Path(QStringLiteral("blocked")), "a file, not a folder"));
        QVERIFY(m_env.MoveHome(Path(QStringLiteral("blocked"))));
        QVERIFY(WorkflowManager::Initialize());
        QVERIFY(m_env.MoveHome(m_env.StartHome()));
        QVERIFY(Imp()->UserWorkflowFolder().isEmpty());
        Imp()->EnsureCatalogueLoaded();
        for (int member = 0; member < 3; ++member)
        {
            Workflow* workflow = AddedBeforeFirstLoad();
            QVERIFY(workflow);
            Workflow other;
            if (member == 0)
                workflow->Reset();
            else if (member == 1)
                workflow->CopyFrom(&other);
            else
                ReadText(
                    [&](WideChar* b, int n) { return workflow->GetImage(WorkflowImageTemplate, 16, b, n); });
            QVERIFY2(WorkflowPrivate::IndexOfWorkflow(workflow) >= 0, qPrintable(QString::number(member)));
        }
        Q_UNUSED(userFolder);
    }

private:
    static bool Uninitialize() { return WorkflowManager::Uninitialize(); }
};

QTEST_GUILESS_MAIN(tst_RecordScan)
#include "tst_recordscan.moc"
