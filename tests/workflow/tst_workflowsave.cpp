// SPDX-License-Identifier: MIT
// Saving workflows: in place, as a new workflow, and names that must not leave their folder.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <QDomDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QtTest>

#include <memory>

#include <signal.h>
#include <unistd.h>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

WorkflowFields& F(Workflow& workflow)
{
    return ImpOf(workflow)->Fields();
}

QString UserFolder()
{
    return ImpOf(WorkflowManager::GetInstance())->UserWorkflowFolder();
}

QStringList FilesIn(const QString& folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

} // namespace

class tst_WorkflowSave : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    QTemporaryDir m_dir;

    QString Path(const QString& name) const { return m_dir.filePath(name); }

    // A user workflow read from a file in the temporary folder.
    std::unique_ptr<Workflow> LoadUserWorkflow(const QString& fileName, const QByteArray& attributes)
    {
        WriteFile(Path(fileName), WorkflowDocument(WorkflowElement(attributes)));
        auto workflow = std::make_unique<Workflow>();
        if (!workflow->Load(Wide(Path(fileName)), Wide(QString())))
            return nullptr;
        return workflow;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(m_dir.isValid());
    }
    void init()
    {
        QDir(m_env.DataHome() + QStringLiteral("/Velmora")).removeRecursively();
        QVERIFY(WorkflowManager::Initialize());
        ImpOf(WorkflowManager::GetInstance())->EnsureCatalogueLoaded();
    }
    void cleanup() { QVERIFY(WorkflowManager::Uninitialize()); }

    void saveWritesBesideSourceUnderName()
    {
        auto workflow =
            LoadUserWorkflow(QStringLiteral("old.workflow"), R"(Id="Id_S" Name="Old" IsTemplate="False")");
        QVERIFY(workflow);
        workflow->SetName(Wide(QStringLiteral("Renamed")));
        WorkflowPrivate::SetWorkflowDirtyState(workflow.get(), true);
        QVERIFY(workflow->Save());
        QVERIFY(QFile::exists(Path(QStringLiteral("Renamed.workflow"))));
        QVERIFY(QFile::exists(Path(QStringLiteral("old.workflow"))));
        QCOMPARE(F(*workflow).SourceFile, Path(QStringLiteral("Renamed.workflow")));
        QVERIFY(!WorkflowPrivate::GetWorkflowDirtyState(workflow.get()));
        QVERIFY(!workflow->IsTemplate());
        Workflow reread;
        QVERIFY(reread.Load(Wide(Path(QStringLiteral("Renamed.workflow"))), Wide(QString())));
        QCOMPARE(F(reread).Id, QStringLiteral("Id_S"));
        QCOMPARE(F(reread).Name, QStringLiteral("Renamed"));
    }

    void saveOnTemplateReturnsFalseAndWritesNothing()
    {
        auto templ = LoadUserWorkflow(QStringLiteral("tpl.workflow"), R"(Id="Id_T" Name="Tpl Copy")");
        QVERIFY(templ);
        QVERIFY(templ->IsTemplate());
        const QStringList before = FilesIn(m_dir.path());
        QVERIFY(!templ->Save());
        QCOMPARE(FilesIn(m_dir.path()), before);
    }

    void saveWithOwnPathInOtherCaseActsAsSave()
    {
        auto workflow =
            LoadUserWorkflow(QStringLiteral("Mine.workflow"), R"(Id="Id_M" Name="Mine" IsTemplate="False")");
        QVERIFY(workflow);
        const QString upper = Path(QStringLiteral("Mine.workflow")).toUpper();
        QVERIFY(workflow->Save(Wide(upper)));
        QCOMPARE(F(*workflow).Id, QStringLiteral("Id_M"));
        QCOMPARE(F(*workflow).SourceFile, Path(QStringLiteral("Mine.workflow")));
        QVERIFY(!QFileInfo::exists(UserFolder()));
    }

    void saveAsNewGoesToUserFolderWithCamelCaseIdAndUuid()
    {
        QVERIFY(QDir().mkpath(m_env.DataHome() + QStringLiteral("/Velmora")));
        auto templ = LoadUserWorkflow(QStringLiteral("template.workflow"), R"(Id="Id_Tpl" Name="Template")");
        QVERIFY(templ);
        WorkflowPrivate::SetWorkflowDirtyState(templ.get(), true);
        const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
        QVERIFY(templ->Save(Wide(QStringLiteral("/somewhere/else/a b.workflow"))));
        const QString target = UserFolder() + QStringLiteral("/a b.workflow");
        QVERIFY(QFile::exists(target));
        QCOMPARE(F(*templ).SourceFile, target);
        QCOMPARE(F(*templ).Name, QStringLiteral("a b"));
        const QRegularExpression idForm(
            QStringLiteral("^Id_AB_\\{[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\\}$"));
        QVERIFY2(idForm.match(F(*templ).Id).hasMatch(), qPrintable(F(*templ).Id));
        QCOMPARE(F(*templ).Id.size(), 6 + 38);
        QVERIFY(!templ->IsTemplate());
        QVERIFY(!F(*templ).IsModified);
        QVERIFY(F(*templ).CreatedDate >= before);
        Workflow reread;
        QVERIFY(reread.Load(Wide(target), Wide(QString())));
        QCOMPARE(F(reread).Id, F(*templ).Id);
        QCOMPARE(F(reread).Name, QStringLiteral("a b"));
        QVERIFY(!reread.IsTemplate());
    }

    void camelCaseOfSeveralWords()
    {
        QVERIFY(QDir().mkpath(m_env.DataHome() + QStringLiteral("/Velmora")));
        auto templ = LoadUserWorkflow(QStringLiteral("t2.workflow"), R"(Id="Id_T2" Name="T")");
        QVERIFY(templ);
        QVERIFY(templ->Save(Wide(QStringLiteral("my new flow.workflow"))));
        QVERIFY(F(*templ).Id.startsWith(QStringLiteral("Id_MyNewFlow_{")));
    }

    void saveAsKeepsOtherSuffixInName()
    {
        QVERIFY(QDir().mkpath(m_env.DataHome() + QStringLiteral("/Velmora")));
        auto templ = LoadUserWorkflow(QStringLiteral("t3.workflow"), R"(Id="Id_T3" Name="T")");
        QVERIFY(templ);
        QVERIFY(templ->Save(Wide(QStringLiteral("/x/notes.txt"))));
        QCOMPARE(F(*templ).Name, QStringLiteral("notes.txt"));
        QVERIFY(QFile::exists(UserFolder() + QStringLiteral("/notes.txt.workflow")));
        QVERIFY(F(*templ).Id.startsWith(QStringLiteral("Id_Notes.txt_{")));
    }

    void saveAsOnAFreshProfileCreatesTheUserFolders()
    {
        // A new user has neither the data folder nor anything below it.
        QVERIFY(QDir(m_env.DataHome()).removeRecursively());
        auto templ = LoadUserWorkflow(QStringLiteral("t4.workflow"), R"(Id="Id_T4" Name="T")");
        QVERIFY(templ);
        QVERIFY(templ->Save(Wide(QStringLiteral("First.workflow"))));
        const QString target = UserFolder() + QStringLiteral("/First.workflow");
        QCOMPARE(F(*templ).SourceFile, target);
        QVERIFY(QFile::exists(target));
        QVERIFY(!QFile::exists(Path(QStringLiteral("First.workflow"))));
        const QFileDevice::Permissions privateFolder =
            QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;
        for (const QString& folder : {m_env.DataHome() + QStringLiteral("/Velmora"), UserFolder()})
            QCOMPARE(QFile::permissions(folder) & 0x7077, privateFolder & 0x7077);

        // The settings folder likewise.
        QVERIFY(QDir(m_env.DataHome() + QStringLiteral("/Velmora")).removeRecursively());
        templ->SetUISetting(Wide(QStringLiteral("Key")), Wide(QStringLiteral("Value")));
        const QString settingsFolder = m_env.DataHome() + QStringLiteral("/Velmora/WorkflowSettings");
        QVERIFY(QFile::exists(settingsFolder + QStringLiteral("/WorkflowSettings.xml")));
        QCOMPARE(ReadText([&](WideChar* b, int n) {
                     return templ->GetUISetting(Wide(QStringLiteral("Key")), b, n);
                 }),
                 QStringLiteral("Value"));
        for (const QString& folder : {m_env.DataHome() + QStringLiteral("/Velmora"), settingsFolder})
            QCOMPARE(QFile::permissions(folder) & 0x7077, privateFolder & 0x7077);
    }

    void saveAsFallsBackToSourceFolderWhenUserFolderCannotBeMade()
    {
        // A file where the vendor folder belongs: the user folder cannot be made below it.
        QVERIFY(WriteFile(m_env.DataHome() + QStringLiteral("/Velmora"), "in the way"));
        auto templ = LoadUserWorkflow(QStringLiteral("t4.workflow"), R"(Id="Id_T4" Name="T")");
        QVERIFY(templ);
        QVERIFY(templ->Save(Wide(QStringLiteral("Fallback.workflow"))));
        QCOMPARE(F(*templ).SourceFile, Path(QStringLiteral("Fallback.workflow")));
        QVERIFY(QFile::exists(Path(QStringLiteral("Fallback.workflow"))));
        QVERIFY(QFile::remove(m_env.DataHome() + QStringLiteral("/Velmora")));
    }

    void failedSaveAsKeepsRecordButCreatedDate()
    {
        if (::geteuid() == 0)
            QSKIP("root writes into read-only folders");
        QDir(m_dir.path()).mkpath(QStringLiteral("locked"));
        auto templ = LoadUserWorkflow(QStringLiteral("locked/t5.workflow"), R"(Id="Id_T5" Name="T5")");
        QVERIFY(templ);
        QFile::setPermissions(Path(QStringLiteral("locked")), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        // A file where the vendor folder belongs: the user folder cannot be made, so the save
        // falls back to the locked source folder.
        QVERIFY(WriteFile(m_env.DataHome() + QStringLiteral("/Velmora"), "in the way"));
        const QDateTime created = F(*templ).CreatedDate;
        QVERIFY(!templ->Save(Wide(QStringLiteral("New one.workflow"))));
        QVERIFY(QFile::remove(m_env.DataHome() + QStringLiteral("/Velmora")));
        QFile::setPermissions(Path(QStringLiteral("locked")),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QCOMPARE(F(*templ).Id, QStringLiteral("Id_T5"));
        QCOMPARE(F(*templ).Name, QStringLiteral("T5"));
        QCOMPARE(F(*templ).SourceFile, Path(QStringLiteral("locked/t5.workflow")));
        QVERIFY(templ->IsTemplate());
        QVERIFY(F(*templ).CreatedDate != created);
    }

    void failedSaveLeavesExistingFileWhole()
    {
        if (::geteuid() == 0)
            QSKIP("root writes into read-only folders");
        QDir(m_dir.path()).mkpath(QStringLiteral("ro"));
        auto workflow = LoadUserWorkflow(QStringLiteral("ro/Keep.workflow"),
                                         R"(Id="Id_K" Name="Keep" IsTemplate="False")");
        QVERIFY(workflow);
        const QByteArray before = ReadFile(Path(QStringLiteral("ro/Keep.workflow")));
        QFile::setPermissions(Path(QStringLiteral("ro")), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        workflow->SetDescription(Wide(QStringLiteral("changed")));
        QVERIFY(!workflow->Save());
        QFile::setPermissions(Path(QStringLiteral("ro")),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QCOMPARE(ReadFile(Path(QStringLiteral("ro/Keep.workflow"))), before);
    }

    void namesNeverLeaveTheFolder_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("parent") << QStringLiteral("../escaped");
        QTest::newRow("deep") << QStringLiteral("../../../../../../tmp/escaped");
        QTest::newRow("backslash") << QStringLiteral("..\\escaped");
        QTest::newRow("dots") << QStringLiteral("..");
        QTest::newRow("nul") << (QStringLiteral("esc") + QChar(0) + QStringLiteral("aped"));
        QTest::newRow("absolute") << QStringLiteral("/tmp/escaped");
    }
    void namesNeverLeaveTheFolder()
    {
        QFETCH(QString, name);
        const QString folder = Path(QStringLiteral("inside"));
        QDir().mkpath(folder);
        WriteFile(Path(QStringLiteral("inside/w.workflow")),
                  WorkflowDocument(WorkflowElement(R"(Id="Id_W" Name="W" IsTemplate="False")")));
        Workflow workflow;
        QVERIFY(workflow.Load(Wide(Path(QStringLiteral("inside/w.workflow"))), Wide(QString())));
        // A NUL cannot pass the exported setter, which stops at it; it can only reach the record
        // from inside the library.
        if (name.contains(QChar(0)))
            F(workflow).Name = name;
        else
            workflow.SetName(Wide(name));
        const QStringList outsideBefore = FilesIn(m_dir.path());
        QVERIFY(workflow.Save());
        QCOMPARE(FilesIn(m_dir.path()), outsideBefore);
        QVERIFY(!QFile::exists(QStringLiteral("/tmp/escaped.workflow")));
        QCOMPARE(QFileInfo(F(workflow).SourceFile).absolutePath(), folder);
        QCOMPARE(F(workflow).Name, name);
        QDir(folder).removeRecursively();
    }

    void renameOntoAnotherWorkflowsFileIsRefused()
    {
        const QByteArray others =
            WorkflowDocument(WorkflowElement(R"(Id="Id_X" Name="Other" IsTemplate="False")") +
                             WorkflowElement(R"(Id="Id_Y" Name="Second" IsTemplate="False")"));
        QVERIFY(WriteFile(Path(QStringLiteral("Other.workflow")), others));
        auto workflow = LoadUserWorkflow(QStringLiteral("mine.workflow"),
                                         R"(Id="Id_Mine" Name="Mine" IsTemplate="False")");
        QVERIFY(workflow);
        workflow->SetName(Wide(QStringLiteral("Other")));
        QVERIFY(!workflow->Save());
        QCOMPARE(ReadFile(Path(QStringLiteral("Other.workflow"))), others);
        QCOMPARE(F(*workflow).SourceFile, Path(QStringLiteral("mine.workflow")));

        // Saving as a new workflow onto a file of the user folder that holds another workflow.
        QVERIFY(QDir().mkpath(UserFolder()));
        const QString userFile = UserFolder() + QStringLiteral("/Taken.workflow");
        QVERIFY(WriteFile(userFile, others));
        QVERIFY(!workflow->Save(Wide(QStringLiteral("Taken.workflow"))));
        QCOMPARE(ReadFile(userFile), others);
        QCOMPARE(F(*workflow).Id, QStringLiteral("Id_Mine"));

        // The workflow's own file is replaced as before, whatever case its id is written in.
        QVERIFY(
            WriteFile(Path(QStringLiteral("Own.workflow")),
                      WorkflowDocument(WorkflowElement(R"(Id="ID_MINE" Name="Own" IsTemplate="False")"))));
        workflow->SetName(Wide(QStringLiteral("Own")));
        QVERIFY(workflow->Save());
        Workflow reread;
        QVERIFY(reread.Load(Wide(Path(QStringLiteral("Own.workflow"))), Wide(QString())));
        QCOMPARE(F(reread).Id, QStringLiteral("Id_Mine"));
    }

    void saveWithEmptyNameIsRefused()
    {
        QDir(m_dir.path()).mkpath(QStringLiteral("unnamed"));
        auto workflow = LoadUserWorkflow(QStringLiteral("unnamed/n.workflow"),
                                         R"(Id="Id_N" Name="N" IsTemplate="False")");
        QVERIFY(workflow);
        workflow->SetName(Wide(QString()));
        QVERIFY(!workflow->Save());
        QCOMPARE(FilesIn(Path(QStringLiteral("unnamed"))), QStringList{QStringLiteral("n.workflow")});
        QVERIFY(QDir().mkpath(UserFolder()));
        QVERIFY(!workflow->Save(Wide(QStringLiteral("/somewhere/.workflow"))));
        QCOMPARE(FilesIn(UserFolder()), QStringList());
    }

    void saveKeepsThePermissionsOfTheReplacedFile()
    {
        auto workflow =
            LoadUserWorkflow(QStringLiteral("Perm.workflow"), R"(Id="Id_P" Name="Perm" IsTemplate="False")");
        QVERIFY(workflow);
        const QString path = Path(QStringLiteral("Perm.workflow"));
        const QFileDevice::Permissions shared =
            QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup;
        QVERIFY(QFile::setPermissions(path, shared));
        workflow->SetDescription(Wide(QStringLiteral("first")));
        QVERIFY(workflow->Save());
        QCOMPARE(QFile::permissions(path) & 0x7077, shared & 0x7077);

        // A read-only file: an ordinary user cannot save over it; root may, and it stays read-only.
        const QFileDevice::Permissions readOnly =
            QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther;
        QVERIFY(QFile::setPermissions(path, readOnly));
        const QByteArray before = ReadFile(path);
        workflow->SetDescription(Wide(QStringLiteral("second")));
        const bool saved = workflow->Save();
        QCOMPARE(QFile::permissions(path) & 0x7077, readOnly & 0x7077);
        if (::geteuid() == 0)
        {
            QVERIFY(saved);
            QVERIFY(ReadFile(path).contains("second"));
        }
        else
        {
            QVERIFY(!saved);
            QCOMPARE(ReadFile(path), before);
        }
        QFile::setPermissions(path, shared);
    }

    void saveNeverWritesThroughALink()
    {
        QDir(m_dir.path()).mkpath(QStringLiteral("linked"));
        const QString real = Path(QStringLiteral("linked/Real.workflow"));
        const QByteArray content =
            WorkflowDocument(WorkflowElement(R"(Id="Id_L" Name="Link" IsTemplate="False")"));
        QVERIFY(WriteFile(real, content));
        const QString link = Path(QStringLiteral("linked/Link.workflow"));
        QVERIFY(QFile::link(real, link));
        Workflow workflow;
        QVERIFY(workflow.Load(Wide(link), Wide(QString())));
        workflow.SetDescription(Wide(QStringLiteral("through the link")));
        QVERIFY(!workflow.Save());
        QCOMPARE(ReadFile(real), content);
        QVERIFY(QFileInfo(link).isSymLink());
        QCOMPARE(FilesIn(Path(QStringLiteral("linked"))),
                 (QStringList{QStringLiteral("Link.workflow"), QStringLiteral("Real.workflow")}));

        // The settings file as a link: the setting is dropped and the link's target stays as it was.
        const QString settingsFolder = m_env.DataHome() + QStringLiteral("/Velmora/WorkflowSettings");
        QVERIFY(QDir().mkpath(settingsFolder));
        const QString target = Path(QStringLiteral("linked/elsewhere.xml"));
        const QByteArray settings =
            "<?xml version=\"1.0\"?>\n<WorkflowSettings><Workflows/></WorkflowSettings>\n";
        QVERIFY(WriteFile(target, settings));
        QVERIFY(QFile::link(target, settingsFolder + QStringLiteral("/WorkflowSettings.xml")));
        workflow.SetUISetting(Wide(QStringLiteral("Key")), Wide(QStringLiteral("Value")));
        QCOMPARE(ReadFile(target), settings);
        QVERIFY(QFileInfo(settingsFolder + QStringLiteral("/WorkflowSettings.xml")).isSymLink());
        QCOMPARE(QDir(settingsFolder).entryList(QDir::Files | QDir::Hidden | QDir::System),
                 QStringList{QStringLiteral("WorkflowSettings.xml")});
        QFile::remove(settingsFolder + QStringLiteral("/WorkflowSettings.xml"));
    }

    void killedWhileSavingLeavesOldOrNewFile()
    {
        const QString child = QCoreApplication::applicationDirPath() + QStringLiteral("/savecrash_child");
        QVERIFY(QFile::exists(child));
        const QString folder = Path(QStringLiteral("crash"));
        QDir().mkpath(folder);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (int round = 0; round < 12; ++round)
        {
            QProcess process;
            process.setProcessEnvironment(environment);
            process.start(child, {folder});
            QVERIFY(process.waitForStarted());
            QVERIFY(process.waitForReadyRead(10000)); // the child says it has saved once
            QTest::qWait(5 + QRandomGenerator::global()->bounded(60));
            ::kill(static_cast<pid_t>(process.processId()), SIGKILL);
            QVERIFY(process.waitForFinished(10000));

            const QByteArray workflowFile = ReadFile(folder + QStringLiteral("/Crash.workflow"));
            QDomDocument document;
            QVERIFY2(document.setContent(workflowFile), "the workflow file is not whole");
            const QString description =
                document.documentElement().firstChildElement().attribute(QStringLiteral("Description"));
            QVERIFY(description == QString(200000, QLatin1Char('A')) ||
                    description == QString(200000, QLatin1Char('B')));

            QDomDocument settings;
            QVERIFY2(
                settings.setContent(ReadFile(
                    m_env.DataHome() + QStringLiteral("/Velmora/WorkflowSettings/WorkflowSettings.xml"))),
                "the settings file is not whole");
            const QString value =
                settings.documentElement().firstChildElement().firstChildElement().attribute(
                    QStringLiteral("Big"));
            QVERIFY(value == QString(100000, QLatin1Char('A')) || value == QString(100000, QLatin1Char('B')));
        }
        // A save killed half-way may leave its temporary file behind; its name never ends in
        // ".workflow", so the catalogue never reads it.
        const QStringList workflows = QDir(folder).entryList({QStringLiteral("*.workflow")}, QDir::Files);
        QCOMPARE(workflows, QStringList{QStringLiteral("Crash.workflow")});
        for (const QString& file : FilesIn(folder))
            QVERIFY2(file == QLatin1String("Crash.workflow") ||
                         file.startsWith(QLatin1String("Crash.workflow.")),
                     qPrintable(file));
    }
};

QTEST_GUILESS_MAIN(tst_WorkflowSave)
#include "tst_workflowsave.moc"
