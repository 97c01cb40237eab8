// SPDX-License-Identifier: MIT
// The list model of the catalogue: rows, roles, and how it and a proxy over it follow the
// catalogue through scans, rescans, additions, deletions and modifications.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "manager/WorkflowManagerImp.h"
#include "models/WorkflowListModel.h"
#include "models/WorkflowListProxyModel.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include "ModelFixture.h"
#include "WideText.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

class tst_WorkflowListModel : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    std::unique_ptr<QTemporaryDir> m_dir;

    WorkflowManager* Manager() const { return WorkflowManager::GetInstance(); }
    WorkflowManagerImp* Imp() const { return WorkflowManagerImp::Instance(); }
    QString Folder(const QString& name) const { return m_dir->path() + QLatin1Char('/') + name; }
    void SetSearchPaths(const QString& paths) { Manager()->SetWorkflowSearchPaths(Wide(paths)); }

    // A proxy with testers on it and on its list model that abort the test on any inconsistency.
    struct Watched
    {
        std::unique_ptr<QSortFilterProxyModel> proxy;
        std::unique_ptr<QAbstractItemModelTester> proxyTester;
        std::unique_ptr<QAbstractItemModelTester> listTester;
    };
    static Watched Watch(const QString& filter = QString(), const QString& sort = QString())
    {
        Watched watched;
        watched.proxy.reset(WorkflowPrivate::GetWorkflowListModel(filter, sort));
        watched.listTester = std::make_unique<QAbstractItemModelTester>(
            watched.proxy->sourceModel(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        watched.proxyTester = std::make_unique<QAbstractItemModelTester>(
            watched.proxy.get(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        return watched;
    }

    static QStringList ProxyIds(const QSortFilterProxyModel* proxy)
    {
        const auto* workflows = static_cast<const WorkflowListProxyModel*>(proxy);
        QStringList ids;
        for (int row = 0; row < proxy->rowCount(); ++row)
            ids << IdOf(workflows->WorkflowAtRow(row));
        return ids;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(WriteProductsAndManifests(m_env));
    }
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        QDir(m_env.DataHome() + QStringLiteral("/Velmora")).removeRecursively();
        QVERIFY(WriteSampleCatalogue(Folder(QStringLiteral("one"))));
        QVERIFY(WorkflowManager::Initialize());
    }
    void cleanup()
    {
        QVERIFY(WorkflowManager::Uninitialize());
        m_dir.reset();
    }

    void constructionLoadsTheCatalogue()
    {
        Imp()->SetWorkflowSearchPaths(Folder(QStringLiteral("one")));
        Imp()->EmptyCatalogue();
        QVERIFY(!Imp()->IsCatalogueLoaded());
        QSignalSpy inserted(Imp(), &WorkflowManagerImp::WorkflowInserted);
        WorkflowListModel model;
        QVERIFY(Imp()->IsCatalogueLoaded());
        QCOMPARE(inserted.count(), 6);
        // Queries of a view never start a scan of their own.
        inserted.clear();
        QCOMPARE(model.rowCount(), 6);
        QCOMPARE(inserted.count(), 0);
    }

    void rowsAreTheCatalogueInOrderWithNames()
    {
        SetSearchPaths(Folder(QStringLiteral("one")));
        WorkflowListModel model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
        QCOMPARE(model.rowCount(), int(Imp()->Catalogue().size()));
        QCOMPARE(CatalogueIds(), Strings({"T1", "T2", "T3", "W1", "W2", "W3"}));
        const QStringList names = Strings({"Report", "Export", "Archive", "Monthly", "Backup", "Report"});
        for (int row = 0; row < model.rowCount(); ++row)
        {
            QCOMPARE(model.data(model.index(row, 0), Qt::DisplayRole).toString(), names.at(row));
            QCOMPARE(model.WorkflowAt(row), Imp()->Catalogue().at(row));
        }
        // The parent is ignored.
        QCOMPARE(model.rowCount(model.index(0, 0)), 6);
    }

    void decorationIsTheSixteenPixelImage()
    {
        SetSearchPaths(Folder(QStringLiteral("one")));
        WorkflowListModel model;
        const QVariant image = model.data(model.index(0, 0), Qt::DecorationRole);
        QCOMPARE(image.typeId(), QMetaType::QImage);
        QCOMPARE(image.value<QImage>().size(), QSize(16, 16));
        QCOMPARE(QColor(image.value<QImage>().pixel(3, 3)), QColor(200, 40, 40));
        // A workflow without an image that loads gives a null image, not an invalid value.
        const QVariant none = model.data(model.index(1, 0), Qt::DecorationRole);
        QCOMPARE(none.typeId(), QMetaType::QImage);
        QVERIFY(none.value<QImage>().isNull());
    }

    void otherRolesAndRowsOutsideAreInvalid()
    {
        SetSearchPaths(Folder(QStringLiteral("one")));
        WorkflowListModel model;
        QVERIFY(!model.data(model.index(0, 0), Qt::ToolTipRole).isValid());
        QVERIFY(!model.data(model.index(0, 0), Qt::EditRole).isValid());
        QVERIFY(!model.data(model.index(6, 0), Qt::DisplayRole).isValid());
        QVERIFY(!model.data(QModelIndex(), Qt::DisplayRole).isValid());
        QVERIFY(!model.WorkflowAt(-1));
        QVERIFY(!model.WorkflowAt(6));
    }

    void withoutManagerTheModelIsEmpty()
    {
        QVERIFY(WorkflowManager::Uninitialize());
        WorkflowListModel model;
        QCOMPARE(model.rowCount(), 0);
        QVERIFY(!model.data(model.index(0, 0)).isValid());
        QVERIFY(WorkflowManager::Initialize());
    }

    void followsAScan()
    {
        Watched watched = Watch(QStringLiteral("IsTemplate=true"));
        auto* model = watched.proxy->sourceModel();
        QCOMPARE(model->rowCount(), 0);
        QSignalSpy inserted(model, &QAbstractItemModel::rowsInserted);
        QSignalSpy reset(model, &QAbstractItemModel::modelReset);
        TestHost host;
        Manager()->SetHostApplicationContext(&host);
        SetSearchPaths(Folder(QStringLiteral("one")));
        QCOMPARE(reset.count(), 0); // nothing to empty: the catalogue held nothing
        QCOMPARE(inserted.count(), 6);
        for (int i = 0; i < inserted.count(); ++i)
        {
            QCOMPARE(inserted.at(i).at(1).toInt(), i);
            QCOMPARE(inserted.at(i).at(2).toInt(), i);
        }
        QCOMPARE(model->rowCount(), 6);
        QCOMPARE(ProxyIds(watched.proxy.get()),
                 Strings({"T2", "T3", "T1"})); // target names: Alpha, Mike, Zulu
        Manager()->SetHostApplicationContext(nullptr);
    }

    void followsARescanThroughAReset()
    {
        SetSearchPaths(Folder(QStringLiteral("one")));
        Watched watched = Watch(QStringLiteral("IsTemplate=false"), QStringLiteral("Name:0"));
        TestHost host;
        Manager()->SetHostApplicationContext(&host);
        watched.proxy->invalidate();
        QCOMPARE(ProxyIds(watched.proxy.get()), Strings({"W2", "W1", "W3"}));
        auto* model = watched.proxy->sourceModel();
        QSignalSpy aboutToReset(model, &QAbstractItemModel::modelAboutToBeReset);
        QSignalSpy reset(model, &QAbstractItemModel::modelReset);
        QSignalSpy removed(model, &QAbstractItemModel::rowsRemoved);
        // A second folder whose workflow has no template: the rescan drops it again.
        QVERIFY(WriteFile(
            Folder(QStringLiteral("two/c.workflow")),
            WorkflowDocument(WorkflowElement(R"(Id="Lost" IsTemplate="False" TemplateId="Gone")") +
                             WorkflowElement(R"(Id="W4" IsTemplate="False" TemplateId="T2" Name="Alpha")"))));
        SetSearchPaths(Folder(QStringLiteral("one")) + QLatin1Char(';') + Folder(QStringLiteral("two")));
        QCOMPARE(aboutToReset.count(), 1);
        QCOMPARE(reset.count(), 1);
        QCOMPARE(removed.count(), 1); // the orphan, after its insertion
        QCOMPARE(removed.at(0).at(1).toInt(), 6);
        QCOMPARE(model->rowCount(), 7);
        QCOMPARE(ProxyIds(watched.proxy.get()), Strings({"W4", "W2", "W1", "W3"}));
        Manager()->SetHostApplicationContext(nullptr);
    }

    void emptyingAnEmptyCatalogueAnnouncesNothing()
    {
        QSignalSpy about(Imp(), &WorkflowManagerImp::CatalogueAboutToBeEmptied);
        QSignalSpy emptied(Imp(), &WorkflowManagerImp::CatalogueEmptied);
        SetSearchPaths(Folder(QStringLiteral("missing")));
        QCOMPARE(Imp()->Catalogue().size(), 0);
        SetSearchPaths(Folder(QStringLiteral("missing2")));
        QCOMPARE(about.count(), 0);
        QCOMPARE(emptied.count(), 0);
        SetSearchPaths(Folder(QStringLiteral("one")));
        SetSearchPaths(Folder(QStringLiteral("one")) + QLatin1Char(';'));
        QCOMPARE(about.count(), 1);
        QCOMPARE(emptied.count(), 1);
    }

    void managerEndResetsTheModel()
    {
        SetSearchPaths(Folder(QStringLiteral("one")));
        Watched watched = Watch();
        auto* model = watched.proxy->sourceModel();
        QSignalSpy reset(model, &QAbstractItemModel::modelReset);
        QCOMPARE(model->rowCount(), 6);
        QVERIFY(WorkflowManager::Uninitialize());
        QCOMPARE(reset.count(), 1);
        QCOMPARE(model->rowCount(), 0);
        QCOMPARE(watched.proxy->rowCount(), 0);
        QVERIFY(WorkflowManager::Initialize());
    }

    void followsAnAddedWorkflow()
    {
        SetSearchPaths(Folder(QStringLiteral("one")));
        Watched watched = Watch(QString(), QStringLiteral("Name:0"));
        TestHost host;
        host.currentProduct = QStringLiteral("prodA");
        Manager()->SetHostApplicationContext(&host);
        watched.proxy->invalidate();
        QCOMPARE(ProxyIds(watched.proxy.get()), Strings({"T3", "W1", "T1"}));
        auto* model = watched.proxy->sourceModel();
        QSignalSpy inserted(model, &QAbstractItemModel::rowsInserted);
        auto* added = new Workflow;
        WorkflowFields& fields = ImpOf(added)->Fields();
        fields.Id = QStringLiteral("New");
        fields.Name = QStringLiteral("Budget");
        fields.IsTemplate = false;
        fields.TemplateId = QStringLiteral("T1");
        fields.PrimaryProduct = QStringLiteral("prodA");
        WorkflowPrivate::AddWorkflow(added);
        QCOMPARE(inserted.count(), 1);
        QCOMPARE(inserted.at(0).at(1).toInt(), 6);
        QCOMPARE(model->rowCount(), 7);
        QCOMPARE(ProxyIds(watched.proxy.get()), Strings({"T3", "New", "W1", "T1"}));
        // The same object a second time is refused and changes nothing.
        WorkflowPrivate::AddWorkflow(added);
        QCOMPARE(inserted.count(), 1);
        Manager()->SetHostApplicationContext(nullptr);
    }

    void followsADeletion()
    {
        SetSearchPaths(Folder(QStringLiteral("one")));
        Watched watched = Watch();
        auto* model = watched.proxy->sourceModel();
        QSignalSpy removed(model, &QAbstractItemModel::rowsRemoved);
        QVERIFY(Manager()->DeleteWorkflow(Wide(QStringLiteral("W2")), Wide(QString()), true));
        QCOMPARE(removed.count(), 1);
        QCOMPARE(removed.at(0).at(1).toInt(), 4);
        QCOMPARE(removed.at(0).at(2).toInt(), 4);
        QCOMPARE(model->rowCount(), 5);
        QCOMPARE(watched.proxy->rowCount(), 5);
        QVERIFY(!ReadFile(Folder(QStringLiteral("one/b-user.workflow"))).contains("\"W2\""));
    }

    void followsACopyThatSignalsAModification()
    {
        SetSearchPaths(Folder(QStringLiteral("one")));
        Watched watched = Watch(QStringLiteral("IsTemplate=false"), QStringLiteral("Name:0"));
        TestHost host;
        Manager()->SetHostApplicationContext(&host);
        watched.proxy->invalidate();
        QCOMPARE(ProxyIds(watched.proxy.get()), Strings({"W2", "W1", "W3"}));
        auto* model = watched.proxy->sourceModel();
        QSignalSpy changed(model, &QAbstractItemModel::dataChanged);
        Workflow* target = Imp()->Catalogue().at(3); // W1
        Workflow source;
        ImpOf(source)->Fields() = ImpOf(target)->Fields(); // a plain copy: no notice yet
        ImpOf(source)->Fields().Name = QStringLiteral("Zebra");
        target->CopyFrom(&source);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(changed.at(0).at(0).toModelIndex(), model->index(3, 0));
        QCOMPARE(changed.at(0).at(1).toModelIndex(), model->index(3, 0));
        QCOMPARE(model->data(model->index(3, 0)).toString(), QStringLiteral("Zebra"));
        // The proxy sorts the renamed row again on its own.
        QCOMPARE(ProxyIds(watched.proxy.get()), Strings({"W2", "W3", "W1"}));
        Manager()->SetHostApplicationContext(nullptr);
    }

    // Deleting a workflow whose file cannot be written announces a removal that never comes;
    // callers rely on that, so it is watched here without the consistency testers, which would
    // rightly object to the unfinished removal.
    void deletionOfAnUnwritableFileLeavesTheRemovalOpen()
    {
        SetSearchPaths(Folder(QStringLiteral("one")));
        std::unique_ptr<QSortFilterProxyModel> proxy(
            WorkflowPrivate::GetWorkflowListModel(QString(), QString()));
        auto* model = proxy->sourceModel();
        QSignalSpy aboutToRemove(model, &QAbstractItemModel::rowsAboutToBeRemoved);
        QSignalSpy removed(model, &QAbstractItemModel::rowsRemoved);
        QSignalSpy proxyAboutToRemove(proxy.get(), &QAbstractItemModel::rowsAboutToBeRemoved);
        // A file that is gone cannot be written, for any user.
        QVERIFY(QFile::remove(Folder(QStringLiteral("one/b-user.workflow"))));
        QVERIFY(!Manager()->DeleteWorkflow(Wide(QStringLiteral("W1")), Wide(QString()), true));
        QCOMPARE(aboutToRemove.count(), 1);
        QCOMPARE(aboutToRemove.at(0).at(1).toInt(), 3);
        QCOMPARE(proxyAboutToRemove.count(), 1);
        QCOMPARE(removed.count(), 0);
        QCOMPARE(model->rowCount(), 6);
        QCOMPARE(CatalogueIds().at(3), QStringLiteral("W1"));
    }

    void modifiedMinusOneChangesNothingInTheView()
    {
        SetSearchPaths(Folder(QStringLiteral("one")));
        Watched watched = Watch(QStringLiteral("IsTemplate=true"), QStringLiteral("Name:0"));
        TestHost host;
        Manager()->SetHostApplicationContext(&host);
        watched.proxy->invalidate();
        const QStringList before = ProxyIds(watched.proxy.get());
        QCOMPARE(before, Strings({"T3", "T2", "T1"}));
        QSignalSpy modelChanged(watched.proxy->sourceModel(), &QAbstractItemModel::dataChanged);
        QSignalSpy proxyChanged(watched.proxy.get(), &QAbstractItemModel::dataChanged);
        QSignalSpy layout(watched.proxy.get(), &QAbstractItemModel::layoutChanged);
        QSignalSpy inserted(watched.proxy.get(), &QAbstractItemModel::rowsInserted);
        QSignalSpy removed(watched.proxy.get(), &QAbstractItemModel::rowsRemoved);
        emit Imp()->WorkflowModified(-1);
        QCOMPARE(modelChanged.count(), 0);
        QCOMPARE(proxyChanged.count(), 0);
        QCOMPARE(layout.count(), 0);
        QCOMPARE(inserted.count(), 0);
        QCOMPARE(removed.count(), 0);
        QCOMPARE(ProxyIds(watched.proxy.get()), before);
        // The same signal with a real row does reach the view.
        emit Imp()->WorkflowModified(0);
        QCOMPARE(modelChanged.count(), 1);
        Manager()->SetHostApplicationContext(nullptr);
    }

    void proxyOwnsItsParentlessListModel()
    {
        SetSearchPaths(Folder(QStringLiteral("one")));
        auto* proxy = WorkflowPrivate::GetWorkflowListModel(QString(), QString());
        QVERIFY(proxy);
        QPointer<QAbstractItemModel> model = proxy->sourceModel();
        QVERIFY(qobject_cast<WorkflowListModel*>(model.data()));
        QVERIFY(!model->parent());
        QVERIFY(!proxy->parent());
        QCOMPARE(proxy->sortCaseSensitivity(), Qt::CaseInsensitive);
        QVERIFY(proxy->dynamicSortFilter());
        delete proxy;
        QVERIFY(model.isNull());
    }
};

QTEST_MAIN(tst_WorkflowListModel)
#include "tst_workflowlistmodel.moc"
