// SPDX-License-Identifier: MIT
// The per-user settings file: where it lives, how it grows, what it never overwrites.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"
#include "workflow/WorkflowSettings.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <QDomDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <QThreadPool>
#include <QtTest>

#include <memory>
#include <random>

#include <unistd.h>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

QString SettingOf(Workflow& workflow, const QString& key)
{
    const Wide wideKey(key);
    return ReadText([&](WideChar* b, int s) { return workflow.GetUISetting(wideKey, b, s); });
}

std::unique_ptr<Workflow> UserWorkflow(const QString& id)
{
    auto workflow = std::make_unique<Workflow>();
    ImpOf(workflow.get())->Fields().IsTemplate = false;
    ImpOf(workflow.get())->Fields().Id = id;
    return workflow;
}

// Elements do not keep their document alive, so the last document read is kept here.
QDomElement SettingsRoot()
{
    static QDomDocument document;
    document = QDomDocument();
    document.setContent(ReadFile(WorkflowSettingsFile()));
    return document.documentElement();
}

} // namespace

class tst_WorkflowSettings : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;

private slots:
    void initTestCase() { QVERIFY(m_env.Setup()); }
    void init()
    {
        QVERIFY(m_env.MoveHome(m_env.StartHome()));
        QDir(m_env.DataHome() + QStringLiteral("/Velmora")).removeRecursively();
    }

    void settingsFileIsUnderApplicationData()
    {
        QCOMPARE(WorkflowSettingsFolder(), m_env.DataHome() + QStringLiteral("/Velmora/WorkflowSettings"));
        QCOMPARE(WorkflowSettingsFile(),
                 m_env.DataHome() + QStringLiteral("/Velmora/WorkflowSettings/WorkflowSettings.xml"));
    }

    void firstWriteCreatesFolderFileAndElement()
    {
        QVERIFY(!QFileInfo::exists(WorkflowSettingsFolder()));
        auto workflow = UserWorkflow(QStringLiteral("Id_One"));
        workflow->SetUISetting(Wide(QStringLiteral("Layout")), Wide(QStringLiteral("Wide")));
        QVERIFY(QFileInfo(WorkflowSettingsFile()).isFile());
        const QDomElement root = SettingsRoot();
        QCOMPARE(root.tagName(), QStringLiteral("WorkflowSettings"));
        const QDomElement workflows = root.firstChildElement();
        QCOMPARE(workflows.tagName(), QStringLiteral("Workflows"));
        const QDomElement element = workflows.firstChildElement();
        QCOMPARE(element.tagName(), QStringLiteral("Workflow"));
        QCOMPARE(element.attribute(QStringLiteral("Id")), QStringLiteral("Id_One"));
        QCOMPARE(element.attribute(QStringLiteral("Layout")), QStringLiteral("Wide"));
        QCOMPARE(element.attributes().count(), 2);
        QVERIFY(element.nextSiblingElement().isNull());
        QCOMPARE(SettingOf(*workflow, QStringLiteral("Layout")), QStringLiteral("Wide"));
    }

    void secondKeyJoinsSameElementSecondWorkflowGetsItsOwn()
    {
        auto one = UserWorkflow(QStringLiteral("Id_One"));
        auto two = UserWorkflow(QStringLiteral("Id_Two"));
        one->SetUISetting(Wide(QStringLiteral("A")), Wide(QStringLiteral("1")));
        one->SetUISetting(Wide(QStringLiteral("B")), Wide(QStringLiteral("2")));
        two->SetUISetting(Wide(QStringLiteral("A")), Wide(QStringLiteral("3")));
        one->SetUISetting(Wide(QStringLiteral("A")), Wide(QStringLiteral("4")));
        const QDomElement first = SettingsRoot().firstChildElement().firstChildElement();
        const QDomElement second = first.nextSiblingElement();
        QCOMPARE(first.attribute(QStringLiteral("Id")), QStringLiteral("Id_One"));
        QCOMPARE(first.attribute(QStringLiteral("A")), QStringLiteral("4"));
        QCOMPARE(first.attribute(QStringLiteral("B")), QStringLiteral("2"));
        QCOMPARE(second.attribute(QStringLiteral("Id")), QStringLiteral("Id_Two"));
        QCOMPARE(second.attribute(QStringLiteral("A")), QStringLiteral("3"));
        QVERIFY(second.nextSiblingElement().isNull());
    }

    void idsDifferingInCaseAreDifferentWorkflows()
    {
        auto upper = UserWorkflow(QStringLiteral("Id_Case"));
        auto lower = UserWorkflow(QStringLiteral("id_case"));
        upper->SetUISetting(Wide(QStringLiteral("K")), Wide(QStringLiteral("upper")));
        lower->SetUISetting(Wide(QStringLiteral("K")), Wide(QStringLiteral("lower")));
        QCOMPARE(SettingOf(*upper, QStringLiteral("K")), QStringLiteral("upper"));
        QCOMPARE(SettingOf(*lower, QStringLiteral("K")), QStringLiteral("lower"));
        QCOMPARE(SettingsRoot().firstChildElement().childNodes().count(), 2);
    }

    void missingThingsReadAsEmpty()
    {
        auto workflow = UserWorkflow(QStringLiteral("Id_Nothing"));
        QCOMPARE(SettingOf(*workflow, QStringLiteral("K")), QString());
        workflow->SetUISetting(Wide(QStringLiteral("K")), Wide(QStringLiteral("v")));
        QCOMPARE(SettingOf(*workflow, QStringLiteral("Other")), QString());
        auto other = UserWorkflow(QStringLiteral("Id_Other"));
        QCOMPARE(SettingOf(*other, QStringLiteral("K")), QString());
        QCOMPARE(SettingOf(*workflow, QString()), QString());
    }

    void emptyKeyWritesNothing()
    {
        auto workflow = UserWorkflow(QStringLiteral("Id_E"));
        workflow->SetUISetting(Wide(QString()), Wide(QStringLiteral("v")));
        QVERIFY(!QFileInfo::exists(WorkflowSettingsFile()));
    }

    // What a read ahead on another thread read is taken only while the file is as it was then:
    // a file changed, removed, created or damaged after the read ahead, or a data folder moved
    // meanwhile, is read as it is at the read.
    void readAheadIsTakenOnlyWhileTheFileIsUnchanged_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<bool>("waitForTheReadAhead");
        QTest::addColumn<QString>("expected");
        for (const bool wait : {true, false})
        {
            const char* when = wait ? "after the read ahead" : "while it may still run";
            QTest::addRow("nothing, %s", when)
                << QStringLiteral("nothing") << wait << QStringLiteral("before");
        }
        QTest::newRow("changed") << QStringLiteral("changed") << true << QStringLiteral("after");
        QTest::newRow("removed") << QStringLiteral("removed") << true << QString();
        QTest::newRow("created") << QStringLiteral("created") << true << QStringLiteral("after");
        QTest::newRow("damaged") << QStringLiteral("damaged") << true << QString();
        QTest::newRow("data folder moved") << QStringLiteral("moved") << true << QStringLiteral("elsewhere");
    }
    void readAheadIsTakenOnlyWhileTheFileIsUnchanged()
    {
        QFETCH(QString, change);
        QFETCH(bool, waitForTheReadAhead);
        QFETCH(QString, expected);
        const QString id = QStringLiteral("Id_A");
        const QString key = QStringLiteral("K");
        if (change != QLatin1String("created"))
            WorkflowSettingsStore().Write(id, key, QStringLiteral("before"));
        const QString elsewhere = m_env.Root() + QStringLiteral("/elsewhere");
        if (change == QLatin1String("moved"))
        {
            QVERIFY(m_env.MoveHome(elsewhere));
            WorkflowSettingsStore().Write(id, key, QStringLiteral("elsewhere"));
            QVERIFY(m_env.MoveHome(m_env.StartHome()));
        }

        QThreadPool pool;
        WorkflowSettingsStore store;
        const WorkflowSettingsStore::ReadSession session(store);
        store.ReadAhead(pool);
        if (waitForTheReadAhead)
            pool.waitForDone();
        if (change == QLatin1String("changed") || change == QLatin1String("created"))
            WorkflowSettingsStore().Write(id, key, QStringLiteral("after"));
        else if (change == QLatin1String("removed"))
            QVERIFY(QFile::remove(WorkflowSettingsFile()));
        else if (change == QLatin1String("damaged"))
            QVERIFY(WriteFile(WorkflowSettingsFile(),
                              "<WorkflowSettings><Workflows><Workflow Id=\"Id_A\" K=\"x\">"));
        else if (change == QLatin1String("moved"))
            QVERIFY(m_env.MoveHome(elsewhere));
        QCOMPARE(store.Read(id, key), expected);
        QCOMPARE(store.Read(QStringLiteral("Id_Unknown"), key), QString());
        pool.waitForDone();
        QVERIFY(m_env.MoveHome(m_env.StartHome()));
    }

    // A store that ends with a read ahead still running leaves it to finish on its own.
    void storeEndingBeforeItsReadAheadFinishes()
    {
        WorkflowSettingsStore().Write(QStringLiteral("Id_A"), QStringLiteral("K"), QStringLiteral("v"));
        QThreadPool pool;
        for (int i = 0; i < 20; ++i)
        {
            WorkflowSettingsStore store;
            store.ReadAhead(pool);
        }
        pool.waitForDone();
        WorkflowSettingsStore store;
        store.ReadAhead(pool);
        QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QStringLiteral("v"));
    }

    void damagedFileIsNeverOverwritten()
    {
        const QByteArray damaged("<WorkflowSettings><Workflows><Workflow Id=\"Id_D\" K=\"v\"></Workflows>");
        QVERIFY(WriteFile(WorkflowSettingsFile(), damaged));
        auto workflow = UserWorkflow(QStringLiteral("Id_D"));
        QCOMPARE(SettingOf(*workflow, QStringLiteral("K")), QString());
        workflow->SetUISetting(Wide(QStringLiteral("K")), Wide(QStringLiteral("new")));
        QCOMPARE(ReadFile(WorkflowSettingsFile()), damaged);
        // A template record writes on destruction: that write is dropped as well.
        {
            Workflow templ;
            ImpOf(templ)->Fields().Id = QStringLiteral("Id_D");
        }
        QCOMPARE(ReadFile(WorkflowSettingsFile()), damaged);
    }

    void fileWithCommentBeforeItsRootStaysReadableAfterAWrite()
    {
        // An instruction or a comment before the root once pushed the written declaration behind
        // it, and the file written then could never be read again: every setting was lost.
        QVERIFY(WriteFile(
            WorkflowSettingsFile(),
            "<?xm0l version=\"1.0\"?>\n<!-- by hand -->\n<WorkflowSettings><Workflows>"
            "<Workflow Id=\"W1\" ShowIntroductionOnExecute=\"False\"/></Workflows></WorkflowSettings>\n"));
        QCOMPARE(
            WorkflowSettingsStore().Read(QStringLiteral("W1"), QStringLiteral("ShowIntroductionOnExecute")),
            QStringLiteral("False"));
        WorkflowSettingsStore().Write(QStringLiteral("W2"), QStringLiteral("LastPage"), QStringLiteral("3"));
        QCOMPARE(WorkflowSettingsStore().Read(QStringLiteral("W2"), QStringLiteral("LastPage")),
                 QStringLiteral("3"));
        QCOMPARE(
            WorkflowSettingsStore().Read(QStringLiteral("W1"), QStringLiteral("ShowIntroductionOnExecute")),
            QStringLiteral("False"));
        QVERIFY(!SettingsRoot().isNull());
    }

    void unreadableFileIsNeverOverwritten()
    {
        if (::geteuid() == 0)
            QSKIP("root reads every file");
        QVERIFY(WriteFile(WorkflowSettingsFile(), "<WorkflowSettings/>"));
        QFile::setPermissions(WorkflowSettingsFile(), QFileDevice::WriteOwner);
        auto workflow = UserWorkflow(QStringLiteral("Id_U"));
        workflow->SetUISetting(Wide(QStringLiteral("K")), Wide(QStringLiteral("v")));
        QFile::setPermissions(WorkflowSettingsFile(), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        QCOMPARE(ReadFile(WorkflowSettingsFile()), QByteArray("<WorkflowSettings/>"));
    }

    void templateWritesShowIntroductionOnDestruction()
    {
        {
            Workflow templ;
            ImpOf(templ)->Fields().Id = QStringLiteral("Id_T");
            WorkflowPrivate::SetUIState(&templ, WorkflowUIState{false});
        }
        QCOMPARE(
            WorkflowSettingsStore().Read(QStringLiteral("Id_T"), QStringLiteral("ShowIntroductionOnExecute")),
            QStringLiteral("False"));
        {
            Workflow templ;
            ImpOf(templ)->Fields().Id = QStringLiteral("Id_T");
        }
        QCOMPARE(
            WorkflowSettingsStore().Read(QStringLiteral("Id_T"), QStringLiteral("ShowIntroductionOnExecute")),
            QStringLiteral("True"));
    }

    void nonTemplateNeverWritesShowIntroduction()
    {
        {
            auto workflow = UserWorkflow(QStringLiteral("Id_N"));
            WorkflowPrivate::SetUIState(workflow.get(), WorkflowUIState{false});
        }
        QVERIFY(!QFileInfo::exists(WorkflowSettingsFile()));
    }

    void untouchedTemplateShowsIntroduction()
    {
        const QString file = m_env.Root() + QStringLiteral("/untouched.workflow");
        QVERIFY(WriteFile(file, WorkflowDocument(WorkflowElement(R"(Id="Id_Fresh" IsTemplate="True")"))));
        QVERIFY(WorkflowManager::Initialize());
        {
            Workflow templ;
            ImpOf(templ)->Fields().ShowIntroductionOnExecute = false;
            QVERIFY(templ.Load(Wide(file), Wide(QString())));
            QVERIFY(WorkflowPrivate::GetUIState(&templ).ShowIntroductionOnExecute);
        }
        QVERIFY(WorkflowManager::Uninitialize());
    }

    void noApplicationDataFolderMeansNothingHappens()
    {
        // A data folder that cannot be created stands for a platform that gives none.
        const QString blocker = m_env.Root() + QStringLiteral("/not-a-folder");
        QVERIFY(WriteFile(blocker, "x"));
        QVERIFY(m_env.MoveHome(blocker));
        auto workflow = UserWorkflow(QStringLiteral("Id_X"));
        workflow->SetUISetting(Wide(QStringLiteral("K")), Wide(QStringLiteral("v")));
        QCOMPARE(SettingOf(*workflow, QStringLiteral("K")), QString());
        QVERIFY(m_env.MoveHome(m_env.StartHome()));
    }

    void choicesPersistBetweenTwoRunsOfAProgram()
    {
        const QString child = QCoreApplication::applicationDirPath() + QStringLiteral("/settings_child");
        QVERIFY(QFile::exists(child));
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("Template.workflow"));
        QVERIFY(WriteFile(file, WorkflowDocument(WorkflowElement(R"(Id="Id_Persisted" Name="P")"))));
        const auto run = [&](const QString& mode) {
            QProcess process;
            process.start(child, {mode, file});
            if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit)
                return QStringLiteral("<crashed>");
            if (process.exitCode() != 0)
                return QStringLiteral("<exit %1>").arg(process.exitCode());
            return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
        };
        QCOMPARE(run(QStringLiteral("get")), QStringLiteral("|1"));
        QCOMPARE(run(QStringLiteral("set")), QString());
        QCOMPARE(run(QStringLiteral("get")), QStringLiteral("Wide and tall|0"));
    }

    // The file as the writer writes it is read byte by byte; whatever that reads, the XML reader
    // reads the same, over files written with random ids, keys and values and over every one of
    // them damaged at random; anything laid out otherwise is left to the XML reader.
    void writtenLayoutReadsAsTheXmlReaderReadsIt()
    {
        std::mt19937 random(20261125);
        const QString characters = QStringLiteral("aZ09 _-.&<>\"'\t\n\r=/;é€");
        const auto text = [&](int most) {
            QString value;
            const int length = int(random() % unsigned(most + 1));
            for (int i = 0; i < length; ++i)
                value += characters.at(int(random() % unsigned(characters.size())));
            return value;
        };
        int readAsWritten = 0;
        int damagedReadAsWritten = 0;
        for (int round = 0; round < 60; ++round)
        {
            QDir(m_env.DataHome() + QStringLiteral("/Velmora")).removeRecursively();
            {
                WorkflowSettingsStore store;
                const WorkflowSettingsStore::Batch batch(store);
                const int workflows = 1 + int(random() % 6);
                for (int w = 0; w < workflows; ++w)
                {
                    const QString id = QStringLiteral("Id_%1%2").arg(w).arg(round % 3 ? QString() : text(4));
                    store.Write(id, QStringLiteral("ShowIntroductionOnExecute"),
                                random() % 2 ? QStringLiteral("True") : QStringLiteral("False"));
                    if (random() % 2)
                        store.Write(id, QStringLiteral("Layout.") + QString::number(round), text(12));
                }
            }
            const QByteArray bytes = ReadFile(WorkflowSettingsFile());
            QVERIFY(!bytes.isEmpty());
            QList<QString> fast;
            QList<QString> plain;
            QVERIFY(ReadPlainSettings(bytes, plain));
            if (ReadSettingsAsWritten(bytes, fast))
            {
                ++readAsWritten;
                QCOMPARE(fast, plain);
            }
            else
            {
                // Only a value beyond plain ASCII is left to the XML reader.
                QVERIFY2(
                    QString::fromUtf8(bytes).contains(QRegularExpression(QStringLiteral("[^\\x00-\\x7f]"))),
                    bytes.constData());
            }
            for (int damage = 0; damage < 200; ++damage)
            {
                QByteArray damaged = bytes;
                const int at = int(random() % unsigned(damaged.size()));
                switch (random() % 3)
                {
                case 0:
                    damaged[at] = char(random() % 128);
                    break;
                case 1:
                    damaged.remove(at, 1 + int(random() % 3));
                    break;
                default:
                    damaged.insert(at,
                                   bytes.mid(int(random() % unsigned(bytes.size())), 1 + int(random() % 8)));
                    break;
                }
                if (!ReadSettingsAsWritten(damaged, fast))
                    continue;
                ++damagedReadAsWritten;
                QVERIFY2(ReadPlainSettings(damaged, plain), damaged.constData());
                QVERIFY2(fast == plain, damaged.constData());
            }
        }
        QVERIFY(readAsWritten > 20);
        QVERIFY(damagedReadAsWritten > 100);

        const QByteArray written =
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows>\n"
            "        <Workflow Id=\"A&amp;B\" Text=\"&lt;&gt;&quot;&#x9;&#xa;&#xd;'>\"/>\n"
            "    </Workflows>\n</WorkflowSettings>\n";
        QList<QString> fast;
        QList<QString> plain;
        QVERIFY(ReadSettingsAsWritten(written, fast));
        QVERIFY(ReadPlainSettings(written, plain));
        QCOMPARE(fast, plain);
        QCOMPARE(fast, QList<QString>{QStringLiteral("Id") + QChar(0) + QStringLiteral("A&B") + QChar(0) +
                                      QStringLiteral("Text") + QChar(0) + QStringLiteral("<>\"\t\n\r'>") +
                                      QChar(0)});
        const QByteArray otherwise[] = {
            "<?xml version=\"1.0\"?>\r\n<WorkflowSettings>\r\n    <Workflows/>\r\n</WorkflowSettings>\r\n",
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<WorkflowSettings>\n    "
            "<Workflows/>\n</WorkflowSettings>\n",
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows>\n        <Workflow Id=\"A\" />\n"
            "    </Workflows>\n</WorkflowSettings>\n",
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows>\n        <Workflow "
            "Id=\"\xc3\xa9\"/>\n"
            "    </Workflows>\n</WorkflowSettings>\n",
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows>\n        <Workflow "
            "Id=\"&apos;\"/>\n"
            "    </Workflows>\n</WorkflowSettings>\n",
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows>\n        <Workflow Id=\"A\" "
            "Id=\"B\"/>\n"
            "    </Workflows>\n</WorkflowSettings>\n",
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows>\n        <Workflow Name=\"A\"/>\n"
            "    </Workflows>\n</WorkflowSettings>\n",
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows>\n    "
            "</Workflows>\n</WorkflowSettings>\n",
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows/>\n</WorkflowSettings>\n<!-- -->\n",
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <!-- -->\n    "
            "<Workflows/>\n</WorkflowSettings>\n",
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows>\n        <Workflow xmlId=\"A\" "
            "Id=\"B\"/>\n"
            "    </Workflows>\n</WorkflowSettings>\n",
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows>\n        <Workflow Id=\"B\" "
            "XmLId=\"A\"/>\n"
            "    </Workflows>\n</WorkflowSettings>\n",
        };
        for (const QByteArray& bytes : otherwise)
            QVERIFY2(!ReadSettingsAsWritten(bytes, fast), bytes.constData());
        const QByteArray empty =
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows/>\n</WorkflowSettings>\n";
        QVERIFY(ReadSettingsAsWritten(empty, fast));
        QVERIFY(fast.isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_WorkflowSettings)
#include "tst_workflowsettings.moc"
