// SPDX-License-Identifier: MIT
// vmworkflow run as a real process on the bundled samples and on bad input.

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "ToolProcess.h"

#include <QCryptographicHash>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace VmWorkflowTest;

namespace {

using Run = ToolRun;

Run Tool(const QStringList& arguments)
{
    return RunTool(QStringLiteral(VMWF_TOOL), arguments);
}

Run ToolWithin(const QStringList& arguments, int milliseconds)
{
    return RunToolWithin(QStringLiteral(VMWF_TOOL), arguments, milliseconds);
}

QJsonArray ListJson(const QStringList& extra = {})
{
    const Run run = Tool(QStringList{QStringLiteral("list"), QStringLiteral("--json")} + extra);
    return QJsonDocument::fromJson(run.out).array();
}

QStringList Ids(const QJsonArray& rows)
{
    QStringList ids;
    for (const QJsonValue& row : rows)
        ids << row.toObject().value(QStringLiteral("id")).toString();
    return ids;
}

} // namespace

class tst_VmWorkflow : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;

private slots:
    void initTestCase() { QVERIFY(m_env.Setup()); }

    void helpAndVersionSucceed()
    {
        const Run help = Tool({QStringLiteral("--help")});
        QCOMPARE(help.status, 0);
        QVERIFY(help.out.contains("list"));
        QVERIFY(help.out.contains("new-name"));
        const Run version = Tool({QStringLiteral("--version")});
        QCOMPARE(version.status, 0);
        QVERIFY(version.out.startsWith("vmworkflow 2015.11"));
    }

    void listsTheSamplesWithoutConfiguration()
    {
        const QJsonArray rows = ListJson();
        const QStringList ids = Ids(rows);
        QVERIFY(ids.contains(QStringLiteral("Id_MonthlyReportTemplate")));
        QVERIFY(ids.contains(QStringLiteral("Id_DataExportTemplate")));
        QVERIFY(ids.contains(QStringLiteral("Id_MyMonthlyReport_{6f1c2a0e-1b2c-4d5e-8f90-a1b2c3d4e5f6}")));
        // The orphan is dropped, the duplicate id stays twice.
        QVERIFY(!ids.contains(QStringLiteral("Id_OrphanedFlow_{11111111-2222-3333-4444-555555555555}")));
        QCOMPARE(ids.count(QStringLiteral("Id_SharedReview")), 2);
        QCOMPARE(rows.size(), 4 + 4);
    }

    void plainListCountsWorkflows()
    {
        const Run run = Tool({QStringLiteral("list")});
        QCOMPARE(run.status, 0);
        QVERIFY(run.out.contains("8 workflows"));
        QVERIFY(run.err.isEmpty());
    }

    void listSortsByName()
    {
        // A locale without translations keeps the template names as written.
        const QJsonArray rows = ListJson({QStringLiteral("--locale"), QStringLiteral("it-IT"),
                                          QStringLiteral("--sort"), QStringLiteral("IsTemplate:0,Name:1")});
        QCOMPARE(rows.size(), 8);
        QVERIFY(rows.at(0).toObject().value(QStringLiteral("isTemplate")).toBool());
        QVERIFY(!rows.at(7).toObject().value(QStringLiteral("isTemplate")).toBool());
        QCOMPARE(rows.at(0).toObject().value(QStringLiteral("name")).toString(),
                 QStringLiteral("tr(Peer review)"));
    }

    void showGivesEveryFieldAsJson()
    {
        const Run run = Tool({QStringLiteral("--locale"), QStringLiteral("it-IT"), QStringLiteral("show"),
                              QStringLiteral("id_monthlyreporttemplate"), QStringLiteral("--json")});
        QCOMPARE(run.status, 0);
        const QJsonObject object = QJsonDocument::fromJson(run.out).object();
        QCOMPARE(object.value(QStringLiteral("id")).toString(), QStringLiteral("Id_MonthlyReportTemplate"));
        QCOMPARE(object.value(QStringLiteral("name")).toString(), QStringLiteral("tr(Monthly report)"));
        QCOMPARE(object.value(QStringLiteral("requiredProducts")).toString(), QStringLiteral("alpha"));
        QCOMPARE(object.value(QStringLiteral("created")).toString(), QStringLiteral("2015-10-01T09:00:00Z"));
        QVERIFY(object.value(QStringLiteral("settings")).toString().contains(QStringLiteral("Collect")));
        const QJsonObject images = object.value(QStringLiteral("images")).toObject();
        QVERIFY(
            images.value(QStringLiteral("16")).toString().endsWith(QStringLiteral("images/report16.png")));
        QVERIFY(
            images.value(QStringLiteral("32")).toString().endsWith(QStringLiteral("images/report32.png")));
    }

    void showTranslatesForTheLocale_data()
    {
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("introduction");
        QTest::newRow("de-DE") << QStringLiteral("de-DE") << QStringLiteral("Monatsbericht")
                               << QStringLiteral("Dieser Ablauf sammelt die Zahlen eines Monats.");
        QTest::newRow("fr-FR") << QStringLiteral("fr-FR") << QStringLiteral("Rapport mensuel")
                               << QStringLiteral("Ce flux réunit les chiffres d'un mois.");
        QTest::newRow("untranslated")
            << QStringLiteral("it-IT") << QStringLiteral("tr(Monthly report)")
            << QStringLiteral("tr(This workflow gathers the figures of one month.)");
    }
    void showTranslatesForTheLocale()
    {
        QFETCH(QString, locale);
        QFETCH(QString, name);
        QFETCH(QString, introduction);
        const Run run = Tool({QStringLiteral("--locale"), locale, QStringLiteral("show"),
                              QStringLiteral("Id_MonthlyReportTemplate"), QStringLiteral("--json")});
        QCOMPARE(run.status, 0);
        const QJsonObject object = QJsonDocument::fromJson(run.out).object();
        QCOMPARE(object.value(QStringLiteral("name")).toString(), name);
        QCOMPARE(object.value(QStringLiteral("introduction")).toString(), introduction);
    }

    void unknownIdFailsWithOneSentence()
    {
        const Run run = Tool({QStringLiteral("show"), QStringLiteral("Id_Nobody")});
        QCOMPARE(run.status, 1);
        QVERIFY(run.out.isEmpty());
        QCOMPARE(run.err.count('\n'), 1);
        QVERIFY(run.err.contains("Id_Nobody"));
    }

    void badCommandLinesGiveStatusTwo_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("no command") << QStringList{};
        QTest::newRow("unknown command") << QStringList{QStringLiteral("launch-rockets")};
        QTest::newRow("unknown option") << QStringList{QStringLiteral("list"), QStringLiteral("--colour")};
        QTest::newRow("show without id") << QStringList{QStringLiteral("show")};
        QTest::newRow("list with argument") << QStringList{QStringLiteral("list"), QStringLiteral("extra")};
        QTest::newRow("malformed filter")
            << QStringList{QStringLiteral("list"), QStringLiteral("--filter"), QStringLiteral("IsTemplate")};
        QTest::newRow("unknown filter key")
            << QStringList{QStringLiteral("list"), QStringLiteral("--filter"), QStringLiteral("Colour=red")};
        QTest::newRow("bad sort") << QStringList{QStringLiteral("list"), QStringLiteral("--sort"),
                                                 QStringLiteral("Name:up")};
        QTest::newRow("filter on show")
            << QStringList{QStringLiteral("show"), QStringLiteral("x"), QStringLiteral("--filter"),
                           QStringLiteral("IsTemplate=true")};
    }
    void badCommandLinesGiveStatusTwo()
    {
        QFETCH(QStringList, arguments);
        const Run run = Tool(arguments);
        QCOMPARE(run.status, 2);
        QCOMPARE(run.err.count('\n'), 1);
        QVERIFY(run.err.startsWith("vmworkflow: "));
    }

    void unreadableSearchPathFails()
    {
        const Run run = Tool({QStringLiteral("--search-paths"),
                              m_env.Root() + QStringLiteral("/no/such/folder"), QStringLiteral("list")});
        QCOMPARE(run.status, 1);
        QVERIFY(run.err.contains("cannot be read"));
    }

    void newNameStartsAtOne()
    {
        const Run run = Tool({QStringLiteral("new-name"), QStringLiteral("Review A")});
        QCOMPARE(run.status, 0);
        QCOMPARE(run.out, QByteArray("Review A (1)\n"));
    }

    void deleteRemovesTheFileOfACopiedWorkflow()
    {
        const QString folder = m_env.Root() + QStringLiteral("/deletable");
        QVERIFY(WriteFile(folder + QStringLiteral("/t.workflow"),
                          WorkflowDocument(WorkflowElement(R"(Id="Tpl")"))));
        QVERIFY(
            WriteFile(folder + QStringLiteral("/u.workflow"),
                      WorkflowDocument(WorkflowElement(R"(Id="Mine" IsTemplate="False" TemplateId="Tpl")"))));
        const Run kept = Tool({QStringLiteral("--search-paths"), folder, QStringLiteral("delete"),
                               QStringLiteral("Mine"), QStringLiteral("--keep-file")});
        QCOMPARE(kept.status, 0);
        QVERIFY(QFile::exists(folder + QStringLiteral("/u.workflow")));
        const Run run = Tool(
            {QStringLiteral("--search-paths"), folder, QStringLiteral("delete"), QStringLiteral("mine")});
        QCOMPARE(run.status, 0);
        QVERIFY(!QFile::exists(folder + QStringLiteral("/u.workflow")));
        const Run again = Tool(
            {QStringLiteral("--search-paths"), folder, QStringLiteral("delete"), QStringLiteral("Mine")});
        QCOMPARE(again.status, 1);
        const Run templ =
            Tool({QStringLiteral("--search-paths"), folder, QStringLiteral("delete"), QStringLiteral("Tpl")});
        QCOMPARE(templ.status, 1);
        QVERIFY(QFile::exists(folder + QStringLiteral("/t.workflow")));
    }

    void deleteInAReadOnlyFolderFails()
    {
        const QString folder = m_env.Root() + QStringLiteral("/lockeddelete");
        QVERIFY(WriteFile(folder + QStringLiteral("/t.workflow"),
                          WorkflowDocument(WorkflowElement(R"(Id="LTpl")"))));
        const QByteArray two =
            WorkflowDocument(WorkflowElement(R"(Id="LMine" IsTemplate="False" TemplateId="LTpl")") +
                             WorkflowElement(R"(Id="LOther" IsTemplate="False" TemplateId="LTpl")"));
        QVERIFY(WriteFile(folder + QStringLiteral("/u.workflow"), two));
        const QByteArray one =
            WorkflowDocument(WorkflowElement(R"(Id="LLast" IsTemplate="False" TemplateId="LTpl")"));
        QVERIFY(WriteFile(folder + QStringLiteral("/v.workflow"), one));
        QVERIFY(QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::ExeOwner |
                                                  QFileDevice::ReadOther | QFileDevice::ExeOther));
        // Root writes into read-only folders, so only an ordinary user sees the refusal.
        const bool privileged = ::geteuid() == 0;
        // Rewriting a file that keeps another workflow, and removing a file left empty.
        const Run rewrite = Tool(
            {QStringLiteral("--search-paths"), folder, QStringLiteral("delete"), QStringLiteral("LMine")});
        const Run remove = Tool(
            {QStringLiteral("--search-paths"), folder, QStringLiteral("delete"), QStringLiteral("LLast")});
        const QByteArray afterRewrite = ReadFile(folder + QStringLiteral("/u.workflow"));
        const bool lastKept = QFile::exists(folder + QStringLiteral("/v.workflow"));
        QFile::setPermissions(folder,
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        if (privileged)
        {
            QCOMPARE(rewrite.status, 0);
            QCOMPARE(remove.status, 0);
            QVERIFY(!afterRewrite.contains("LMine"));
            QVERIFY(!lastKept);
            return;
        }
        QCOMPARE(rewrite.status, 1);
        QVERIFY2(!rewrite.out.contains("deleted"), rewrite.out.constData());
        QCOMPARE(rewrite.err.count('\n'), 1);
        QCOMPARE(afterRewrite, two);
        QCOMPARE(remove.status, 1);
        QVERIFY(!remove.out.contains("deleted"));
        QVERIFY(lastKept);
    }

    void localeIsANameNotAPath()
    {
        // <root>/loc/a/b is the search path; "../../x" would reach <root>/loc/x.
        const QString base = m_env.Root() + QStringLiteral("/loc");
        const QString search = base + QStringLiteral("/a/b");
        QVERIFY(WriteFile(search + QStringLiteral("/w.workflow"),
                          WorkflowDocument(WorkflowElement(R"x(Id="Loc" Name="tr(Hello)")x"), "Texts")));
        const QByteArray xlf = "<xliff><file original=\"w.workflow\"><body><trans-unit id=\"" +
                               QCryptographicHash::hash("tr(Hello)", QCryptographicHash::Md5).toHex() +
                               "\"><target>Escaped</target></trans-unit></body></file></xliff>";
        QVERIFY(WriteFile(base + QStringLiteral("/x/Texts.xlf"), xlf));
        QVERIFY(WriteFile(search + QStringLiteral("/de-DE/Texts.xlf"),
                          QByteArray(xlf).replace("Escaped", "Hallo")));
        const auto name = [&](const QString& locale) {
            const Run run =
                Tool({QStringLiteral("--search-paths"), search, QStringLiteral("--locale"), locale,
                      QStringLiteral("show"), QStringLiteral("Loc"), QStringLiteral("--json")});
            return QJsonDocument::fromJson(run.out).object().value(QStringLiteral("name")).toString();
        };
        QCOMPARE(name(QStringLiteral("de-DE")), QStringLiteral("Hallo"));
        QCOMPARE(name(QStringLiteral("../../x")), QStringLiteral("tr(Hello)"));
        QCOMPARE(name(QStringLiteral("de-DE/../../../x")), QStringLiteral("tr(Hello)"));
    }

    void plainListCannotForgeLines()
    {
        const QString folder = m_env.Root() + QStringLiteral("/forged");
        QVERIFY(WriteFile(
            folder + QStringLiteral("/f.workflow"),
            WorkflowDocument(WorkflowElement(
                R"(Id="Forge&#10;template  runs here        Id_Fake" Name="A&#13;&#10;1 workflow&#x85;&#x2028;end")"))));
        const Run run = Tool({QStringLiteral("--search-paths"), folder, QStringLiteral("list")});
        QCOMPARE(run.status, 0);
        // One line for the workflow and one for the count, and no control character but the ends of line.
        QCOMPARE(run.out.count('\n'), 2);
        for (const QChar c : QString::fromUtf8(run.out))
            QVERIFY2(c == QLatin1Char('\n') ||
                         (c.category() != QChar::Other_Control && c.category() != QChar::Separator_Line),
                     run.out.toPercentEncoding().constData());
        QVERIFY(run.out.endsWith("\n1 workflow\n"));
        const QJsonArray rows = ListJson({QStringLiteral("--search-paths"), folder});
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows.at(0).toObject().value(QStringLiteral("name")).toString(),
                 QString::fromUtf8("A\r\n1 workflow\u0085\u2028end"));
    }

    void fifoAsImageDoesNotHang()
    {
        const QString folder = m_env.Root() + QStringLiteral("/fifoimage");
        QVERIFY(
            WriteFile(folder + QStringLiteral("/f.workflow"),
                      WorkflowDocument(WorkflowElement(R"(Id="Fifo" Name="F" TemplateImage="pipe.png")"))));
        QVERIFY(::mkfifo(QFile::encodeName(folder + QStringLiteral("/pipe.png")).constData(), 0600) == 0);
        const Run run = ToolWithin({QStringLiteral("--search-paths"), folder, QStringLiteral("show"),
                                    QStringLiteral("Fifo"), QStringLiteral("--json")},
                                   20000);
        QCOMPARE(run.status, 0);
        QCOMPARE(QJsonDocument::fromJson(run.out).object().value(QStringLiteral("id")).toString(),
                 QStringLiteral("Fifo"));
    }

    void listSaysWhichSamplesRunHere()
    {
        // The sample manifests install Alpha 2016.1 and Beta 2017.0, Delta only as 2014.2.
        QHash<QString, bool> runs;
        for (const QJsonValue& row : ListJson())
            runs.insert(row.toObject().value(QStringLiteral("id")).toString(),
                        row.toObject().value(QStringLiteral("isExecutable")).toBool());
        QCOMPARE(runs.value(QStringLiteral("Id_MonthlyReportTemplate"), false), true); // alpha
        QCOMPARE(runs.value(QStringLiteral("Id_LegacyImportTemplate"), true), false);  // delta:2015
        QCOMPARE(
            runs.value(QStringLiteral("Id_QuarterlyExport_{0a9b8c7d-6e5f-4a3b-9c2d-1e0f9a8b7c6d}"), false),
            true); // alpha & beta
        const QJsonArray runnable =
            ListJson({QStringLiteral("--filter"), QStringLiteral("IsExecutable=true")});
        for (const QJsonValue& row : runnable)
            QVERIFY(row.toObject().value(QStringLiteral("isExecutable")).toBool());
        const QJsonArray stuck = ListJson({QStringLiteral("--filter"), QStringLiteral("IsExecutable=false")});
        QVERIFY(Ids(stuck).contains(QStringLiteral("Id_LegacyImportTemplate")));
        QCOMPARE(runnable.size() + stuck.size(), ListJson().size());
    }

    void productsShowsNamesHubNamesAndInstallation()
    {
        const Run run = Tool({QStringLiteral("products"), QStringLiteral("alpha,gamma,delta:2015,nothing"),
                              QStringLiteral("--json")});
        QCOMPARE(run.status, 0);
        const QJsonArray rows = QJsonDocument::fromJson(run.out).array();
        QCOMPARE(rows.size(), 4);
        const QJsonObject alpha = rows.at(0).toObject();
        QCOMPARE(alpha.value(QStringLiteral("name")).toString(), QStringLiteral("Alpha Studio"));
        QCOMPARE(alpha.value(QStringLiteral("hubName")).toString(), QStringLiteral("Id_AlphaStudio"));
        QCOMPARE(alpha.value(QStringLiteral("installed")).toBool(), true);
        QCOMPARE(alpha.value(QStringLiteral("infoIds")).toArray(), QJsonArray{1001});
        QCOMPARE(rows.at(1).toObject().value(QStringLiteral("installed")).toBool(), false);
        const QJsonObject delta = rows.at(2).toObject();
        QCOMPARE(delta.value(QStringLiteral("version")).toString(), QStringLiteral("2015"));
        QCOMPARE(delta.value(QStringLiteral("installed")).toBool(), false);
        QVERIFY(rows.at(3).toObject().value(QStringLiteral("name")).toString().isEmpty());
        const Run plain = Tool({QStringLiteral("products"), QStringLiteral("beta:2017")});
        QCOMPARE(plain.status, 0);
        QVERIFY(plain.out.contains("Beta Ledger"));
        QVERIFY(plain.out.contains("installed"));
        QCOMPARE(Tool({QStringLiteral("products")}).status, 2);
    }
};

QTEST_GUILESS_MAIN(tst_VmWorkflow)
#include "tst_vmworkflow.moc"
