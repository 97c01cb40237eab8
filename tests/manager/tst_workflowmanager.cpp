// SPDX-License-Identifier: MIT
// The manager's implementation: its signals, configuration, catalogue insertion and lookups.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "manager/Constants.h"
#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <OstrelAdapter/ApplicationManager.h>

#include "TestEnvironment.h"
#include "WideText.h"

#include <QSignalSpy>
#include <QtTest>

using namespace Velmora::WorkflowCore;
using Velmora::OstrelAdapter::ApplicationManager;
using VmWorkflowTest::Wide;

namespace {

WorkflowManagerImp* Imp()
{
    return ImpOf(WorkflowManager::GetInstance());
}

Workflow* Add(const QString& id, const QString& name = QString(), const QString& sourceFile = QString())
{
    auto* workflow = new Workflow;
    ImpOf(workflow)->Fields().Id = id;
    ImpOf(workflow)->Fields().Name = name;
    ImpOf(workflow)->Fields().SourceFile = sourceFile;
    WorkflowPrivate::AddWorkflow(workflow);
    return workflow;
}

} // namespace

class tst_WorkflowManager : public QObject
{
    Q_OBJECT
private:
    VmWorkflowTest::TestEnvironment m_env;
    QTemporaryDir m_dir;

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(m_dir.isValid());
    }
    void init() { QVERIFY(WorkflowManager::Initialize()); }
    void cleanup() { QVERIFY(WorkflowManager::Uninitialize()); }

    void fiveSignalsInDeclaredOrder()
    {
        const QMetaObject& meta = WorkflowManagerImp::staticMetaObject;
        QStringList signatures;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        {
            if (meta.method(i).methodType() == QMetaMethod::Signal)
                signatures << QString::fromLatin1(meta.method(i).methodSignature());
        }
        // The five per-row signals in their order, then the pair around emptying the catalogue.
        QCOMPARE(signatures,
                 QStringList({QStringLiteral("WorkflowAboutToBeInserted(int)"),
                              QStringLiteral("WorkflowAboutToBeRemoved(int)"),
                              QStringLiteral("WorkflowInserted(int)"), QStringLiteral("WorkflowRemoved(int)"),
                              QStringLiteral("WorkflowModified(int)"),
                              QStringLiteral("CatalogueAboutToBeEmptied()"),
                              QStringLiteral("CatalogueEmptied()")}));
    }

    void userWorkflowFolderIsUnderApplicationData()
    {
        QCOMPARE(Imp()->UserWorkflowFolder(), m_env.DataHome() + QStringLiteral("/Velmora/Workflows"));
    }

    void stringConstants()
    {
        QCOMPARE(Names::Locale, QStringLiteral("Locale"));
        QCOMPARE(Names::LocaleId, QStringLiteral("LocaleId"));
        QCOMPARE(Names::ParentProcessId, QStringLiteral("ParentProcessId"));
        QCOMPARE(Names::PluginSearchPaths, QStringLiteral("PluginSearchPaths"));
        QCOMPARE(Names::WorkflowSearchPath, QStringLiteral("WorkflowSearchPath"));
        QCOMPARE(Names::GetWorkflowInfo, QStringLiteral("GetWorkflowInfo"));
        QCOMPARE(Names::WorkflowFile, QStringLiteral("WorkflowFile"));
        QCOMPARE(Names::WorkflowId, QStringLiteral("WorkflowId"));
        QCOMPARE(Names::WorkflowSourceFile, QStringLiteral("WorkflowSourceFile"));
        QCOMPARE(Names::HostApplicationId, QStringLiteral("Id_VmWorkflowHost"));
        QCOMPARE(Names::Workflows, QStringLiteral("Workflows"));
        QCOMPARE(Names::Velmora, QStringLiteral("Velmora"));
        QCOMPARE(Names::WorkflowExecutionBeginningMsg, QStringLiteral("WorkflowExecutionBeginningMsg"));
        QCOMPARE(Names::WorkflowExecutionFinishedMsg, QStringLiteral("WorkflowExecutionFinishedMsg"));
        QCOMPARE(Names::WorkflowModifiedMsg, QStringLiteral("WorkflowModifiedMsg"));
    }

    void insertingIntoEmptyCatalogueSignalsZeroThenOne()
    {
        Imp()->EnsureCatalogueLoaded();
        QSignalSpy aboutToInsert(Imp(), &WorkflowManagerImp::WorkflowAboutToBeInserted);
        QSignalSpy inserted(Imp(), &WorkflowManagerImp::WorkflowInserted);
        QSignalSpy order(Imp(), &WorkflowManagerImp::WorkflowInserted);
        QStringList sequence;
        connect(Imp(), &WorkflowManagerImp::WorkflowAboutToBeInserted, this,
                [&](int n) { sequence << QStringLiteral("about %1").arg(n); });
        connect(Imp(), &WorkflowManagerImp::WorkflowInserted, this,
                [&](int n) { sequence << QStringLiteral("inserted %1").arg(n); });
        Add(QStringLiteral("a"));
        Add(QStringLiteral("b"));
        QCOMPARE(sequence, QStringList({QStringLiteral("about 0"), QStringLiteral("inserted 1"),
                                        QStringLiteral("about 1"), QStringLiteral("inserted 2")}));
        QCOMPARE(aboutToInsert.size(), 2);
        QCOMPARE(inserted.size(), 2);
    }

    void insertionRefusesNullAndDuplicates()
    {
        Imp()->EnsureCatalogueLoaded();
        Workflow* a = Add(QStringLiteral("a"));
        QSignalSpy aboutToInsert(Imp(), &WorkflowManagerImp::WorkflowAboutToBeInserted);
        QVERIFY(!Imp()->AddWorkflow(nullptr));
        QVERIFY(!Imp()->AddWorkflow(a));
        QCOMPARE(aboutToInsert.size(), 0);
        // A second workflow with the same id is catalogued too.
        auto* again = new Workflow;
        ImpOf(again)->Fields().Id = QStringLiteral("A");
        QVERIFY(Imp()->AddWorkflow(again));
        QCOMPARE(Imp()->Catalogue().size(), 2);
    }

    void sameSearchPathsDoNotRescan()
    {
        Imp()->SetWorkflowSearchPaths(m_dir.path());
        Workflow* kept = Add(QStringLiteral("kept"));
        Imp()->SetWorkflowSearchPaths(m_dir.path());
        QCOMPARE(WorkflowPrivate::GetWorkflow(0), kept);
    }

    void newSearchPathsRescanAtOnce()
    {
        QVERIFY(!Imp()->IsCatalogueLoaded());
        WorkflowManager::GetInstance()->SetWorkflowSearchPaths(Wide(m_dir.path()));
        // The scan ran inside the setter, before any lookup.
        QVERIFY(Imp()->IsCatalogueLoaded());
        Add(QStringLiteral("dropped by the next rescan"));
        QCOMPARE(Imp()->Catalogue().size(), 1);
        WorkflowManager::GetInstance()->SetWorkflowSearchPaths(Wide(m_dir.path() + QStringLiteral(";")));
        QCOMPARE(Imp()->Catalogue().size(), 0);
        QVERIFY(Imp()->IsCatalogueLoaded());
    }

    void sameLocaleDoesNotReachTheHub()
    {
        ApplicationManager* hub = ApplicationManager::GetInstance();
        QVERIFY(hub);
        WorkflowManager::GetInstance()->SetCurrentLocale(Wide(QStringLiteral("fr-FR")));
        QCOMPARE(hub->GetCurrentLocale(), QStringLiteral("fr-FR"));
        hub->SetCurrentLocale(QStringLiteral("marker"));
        WorkflowManager::GetInstance()->SetCurrentLocale(Wide(QStringLiteral("fr-FR")));
        QCOMPARE(hub->GetCurrentLocale(), QStringLiteral("marker"));
        WorkflowManager::GetInstance()->SetCurrentLocale(Wide(QStringLiteral("it-IT")));
        QCOMPARE(hub->GetCurrentLocale(), QStringLiteral("it-IT"));
    }

    void lookupIgnoresCaseOfId()
    {
        Imp()->EnsureCatalogueLoaded();
        Workflow* abc = Add(QStringLiteral("abc"));
        QCOMPARE(WorkflowManager::GetInstance()->GetWorkflow(Wide(QStringLiteral("ABC")), Wide(QString())),
                 abc);
        QVERIFY(!WorkflowManager::GetInstance()->GetWorkflow(Wide(QStringLiteral("abd")), Wide(QString())));
    }

    void lookupBySourceFileMatchesTheSameFileHoweverSpelled()
    {
        Imp()->EnsureCatalogueLoaded();
        QFile(m_dir.filePath(QStringLiteral("one.workflow"))).open(QIODevice::WriteOnly);
        QFile(m_dir.filePath(QStringLiteral("two.workflow"))).open(QIODevice::WriteOnly);
        Workflow* first =
            Add(QStringLiteral("same"), QString(), m_dir.filePath(QStringLiteral("one.workflow")));
        Workflow* second =
            Add(QStringLiteral("same"), QString(), m_dir.filePath(QStringLiteral("two.workflow")));
        WorkflowManager* manager = WorkflowManager::GetInstance();
        QCOMPARE(manager->GetWorkflow(Wide(QStringLiteral("SAME")), Wide(QString())), first);
        const QString otherSpelling = m_dir.path() + QStringLiteral("/./sub/../two.workflow");
        QDir(m_dir.path()).mkpath(QStringLiteral("sub"));
        QCOMPARE(manager->GetWorkflow(Wide(QStringLiteral("same")), Wide(otherSpelling)), second);
        QVERIFY(!manager->GetWorkflow(Wide(QStringLiteral("same")),
                                      Wide(m_dir.filePath(QStringLiteral("three.workflow")))));
    }

    void findWorkflowByNameIgnoresCase()
    {
        Imp()->EnsureCatalogueLoaded();
        Workflow* report = Add(QStringLiteral("1"), QStringLiteral("Monthly Report"));
        QCOMPARE(WorkflowPrivate::FindWorkflow(QStringLiteral("monthly report")), report);
        QVERIFY(!WorkflowPrivate::FindWorkflow(QStringLiteral("weekly report")));
    }

    void lookupFoldsCaseBeyondAscii()
    {
        Imp()->EnsureCatalogueLoaded();
        WorkflowManager* manager = WorkflowManager::GetInstance();
        Workflow* summer =
            Add(QString::fromUtf8("\u00e9t\u00e9"), QString::fromUtf8("R\u00e9sum\u00e9 \u03a9"));
        QCOMPARE(manager->GetWorkflow(Wide(QString::fromUtf8("\u00c9T\u00c9")), Wide(QString())), summer);
        QCOMPARE(WorkflowPrivate::FindWorkflow(QString::fromUtf8("r\u00c9SUM\u00c9 \u03c9")), summer);
        QVERIFY(!WorkflowPrivate::FindWorkflow(QString::fromUtf8("r\u00c9SUM\u00c9 \u03c8")));
        // The Kelvin sign folds to a plain k: a key of plain letters finds a text that holds
        // one, and a text that holds one finds a key of plain letters.
        const QString kelvin = QString(QChar(0x212A)) + QStringLiteral("ey");
        QCOMPARE(kelvin.toCaseFolded(), QStringLiteral("key"));
        Workflow* key = Add(kelvin);
        QCOMPARE(manager->GetWorkflow(Wide(QStringLiteral("KEY")), Wide(QString())), key);
        Workflow* kiln = Add(QStringLiteral("kiln"));
        QCOMPARE(manager->GetWorkflow(Wide(QString(QChar(0x212A)) + QStringLiteral("ILN")), Wide(QString())),
                 kiln);
    }

    void getWorkflowByIndexBounds()
    {
        Imp()->EnsureCatalogueLoaded();
        Workflow* a = Add(QStringLiteral("a"));
        QCOMPARE(WorkflowPrivate::GetWorkflow(0), a);
        QVERIFY(!WorkflowPrivate::GetWorkflow(-1));
        QVERIFY(!WorkflowPrivate::GetWorkflow(1));
        QCOMPARE(WorkflowPrivate::IndexOfWorkflow(a), 0);
        QCOMPARE(WorkflowPrivate::IndexOfWorkflow(nullptr), -1);
        Workflow stranger;
        QCOMPARE(WorkflowPrivate::IndexOfWorkflow(&stranger), -1);
    }

    void indexLookupsDoNotLoadTheCatalogue()
    {
        QVERIFY(!WorkflowPrivate::GetWorkflow(0));
        QCOMPARE(WorkflowPrivate::IndexOfWorkflow(nullptr), -1);
        QVERIFY(!Imp()->IsCatalogueLoaded());
    }

    void newWorkflowNameStartsAtOne()
    {
        Imp()->EnsureCatalogueLoaded();
        QCOMPARE(WorkflowPrivate::GetNewWorkflowName(QStringLiteral("Flow")), QStringLiteral("Flow (1)"));
    }

    void newWorkflowNameSkipsTakenNumbers()
    {
        Imp()->EnsureCatalogueLoaded();
        Add(QStringLiteral("1"), QStringLiteral("Flow (1)"));
        Add(QStringLiteral("2"), QStringLiteral("flow (2)"));
        Add(QStringLiteral("3"), QStringLiteral("Flow"));
        QCOMPARE(WorkflowPrivate::GetNewWorkflowName(QStringLiteral("Flow")), QStringLiteral("Flow (3)"));
    }

    void newWorkflowNameOfLongBaseIs246Characters()
    {
        Imp()->EnsureCatalogueLoaded();
        const QString base(250, QLatin1Char('b'));
        const QString name = WorkflowPrivate::GetNewWorkflowName(base);
        QCOMPARE(name.size(), 246);
        QVERIFY(name.endsWith(QStringLiteral("b (1)")));
        QCOMPARE(name, QString(242, QLatin1Char('b')) + QStringLiteral(" (1)"));
    }

    void deleteSourceFileOfUnsavedWorkflowTouchesNothing()
    {
        Workflow unsaved;
        ImpOf(unsaved)->Fields().IsTemplate = false;
        const QStringList before = QDir(m_dir.path()).entryList(QDir::Files);
        WorkflowPrivate::DeleteSourceFile(&unsaved);
        QCOMPARE(QDir(m_dir.path()).entryList(QDir::Files), before);
    }

    void deleteSourceFileRemovesFileButKeepsWorkflow()
    {
        Imp()->EnsureCatalogueLoaded();
        const QString path = m_dir.filePath(QStringLiteral("doomed.workflow"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        Workflow* workflow = Add(QStringLiteral("d"), QString(), path);
        WorkflowPrivate::DeleteSourceFile(workflow);
        QVERIFY(!QFile::exists(path));
        QCOMPARE(WorkflowPrivate::IndexOfWorkflow(workflow), 0);
    }

    void linkStateListenersAreKeptOnce()
    {
        struct Listener : LinkStateListener
        {
            void OnLinkStarted() override {}
            int GetProcessId() override { return 42; }
        } listener;
        WorkflowPrivate::AddLinkStateListener(&listener);
        WorkflowPrivate::AddLinkStateListener(&listener);
        WorkflowPrivate::RemoveLinkStateListener(&listener);
        WorkflowPrivate::RemoveLinkStateListener(&listener);
    }
};

QTEST_GUILESS_MAIN(tst_WorkflowManager)
#include "tst_workflowmanager.moc"
