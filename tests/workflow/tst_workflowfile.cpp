// SPDX-License-Identifier: MIT
// Reading and writing .workflow files: the record's fields, defaults, ids and round trips.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "util/XmlFiler.h"
#include "workflow/WorkflowFile.h"
#include "workflow/WorkflowImp.h"
#include "workflow/WorkflowSettings.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <QDomDocument>
#include <QtTest>

#include <memory>

#include <unistd.h>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

WorkflowFields& F(Workflow& workflow)
{
    return ImpOf(workflow)->Fields();
}

QDomElement FirstWorkflowElement(const QString& path)
{
    QDomDocument document;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || !document.setContent(&file))
        return QDomElement();
    return document.documentElement().firstChildElement(QStringLiteral("Workflow"));
}

QDateTime Utc(int y, int mo, int d, int h, int mi, int s)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s), Qt::UTC);
}

} // namespace

class tst_WorkflowFile : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    QTemporaryDir m_dir;

    QString Path(const QString& name) const { return m_dir.filePath(name); }

    bool LoadFrom(Workflow& workflow, const QByteArray& content, const QString& id = QString(),
                  const QString& name = QStringLiteral("one.workflow"))
    {
        if (!WriteFile(Path(name), content))
            return false;
        return workflow.Load(Wide(Path(name)), Wide(id));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(m_dir.isValid());
    }
    void init()
    {
        QVERIFY(WorkflowManager::Initialize());
        ImpOf(WorkflowManager::GetInstance())->EnsureCatalogueLoaded();
    }
    void cleanup() { QVERIFY(WorkflowManager::Uninitialize()); }

    void readsEveryField()
    {
        Workflow workflow;
        QVERIFY(LoadFrom(
            workflow,
            WorkflowDocument(WorkflowElement(
                R"(Plugin="SamplePlugin" IsTemplate="False" IsReadOnly="false" TemplateId="Tpl" Id="Id_A" HelpId="H1" )"
                R"(Name="Alpha" Description="Desc" Tooltip="Tip" Tag="T" Keywords="k1 k2" UIFile="a.ui" )"
                R"(PrimaryProduct="prodA" TargetProduct="prodA:2016" RequiredProducts="prodA &amp; prodB" )"
                R"(RequiredProductsDisplayText="A and B" CreatedDate="2016-03-01T12:00:00" )"
                R"(LastModifiedDate="2016-04-02T08:30:15" TemplateImage="a16.png|a32.png" ModifiedImage="m.png")",
                "<Introduction>Hello there</Introduction><Settings><Step Order=\"1\"/><Step "
                "Order=\"2\"/></Settings>"))));
        const WorkflowFields& f = F(workflow);
        QCOMPARE(f.SourceFile, Path(QStringLiteral("one.workflow")));
        QCOMPARE(f.Plugin, QStringLiteral("SamplePlugin"));
        QVERIFY(!f.IsTemplate);
        QVERIFY(!f.IsReadOnly);
        QCOMPARE(f.TemplateId, QStringLiteral("Tpl"));
        QCOMPARE(f.Id, QStringLiteral("Id_A"));
        QCOMPARE(f.HelpId, QStringLiteral("H1"));
        QCOMPARE(f.Name, QStringLiteral("Alpha"));
        QCOMPARE(f.Description, QStringLiteral("Desc"));
        QCOMPARE(f.Tooltip, QStringLiteral("Tip"));
        QCOMPARE(f.Tag, QStringLiteral("T"));
        QCOMPARE(f.Keywords, QStringLiteral("k1 k2"));
        QCOMPARE(f.UIFile, QStringLiteral("a.ui"));
        QCOMPARE(f.PrimaryProduct, QStringLiteral("prodA"));
        QCOMPARE(f.TargetProduct, QStringLiteral("prodA:2016"));
        QCOMPARE(f.RequiredProducts, QStringLiteral("prodA & prodB"));
        QCOMPARE(f.RequiredProductsDisplayText, QStringLiteral("A and B"));
        QCOMPARE(f.CreatedDate, Utc(2016, 3, 1, 12, 0, 0));
        QCOMPARE(f.CreatedDate.timeSpec(), Qt::LocalTime);
        QCOMPARE(f.LastModifiedDate, Utc(2016, 4, 2, 8, 30, 15));
        QCOMPARE(workflow.GetCreatedDate(), 1456833600u);
        QCOMPARE(f.TemplateImage, QStringLiteral("a16.png|a32.png"));
        QCOMPARE(f.ModifiedImage, QStringLiteral("m.png"));
        QCOMPARE(f.Introduction, QStringLiteral("Hello there"));
        const QString settings = f.Settings.ToString();
        QVERIFY(settings.contains(QStringLiteral("<Step Order=\"1\"/>")));
        QVERIFY(settings.indexOf(QStringLiteral("Order=\"1\"")) <
                settings.indexOf(QStringLiteral("Order=\"2\"")));
        QVERIFY(!f.IsModified);
    }

    void missingIsTemplateReadsAsTemplate()
    {
        Workflow workflow;
        F(workflow).IsTemplate = false;
        QVERIFY(LoadFrom(workflow, WorkflowDocument(WorkflowElement(R"(Id="a")"))));
        QVERIFY(F(workflow).IsTemplate);
    }

    void isReadOnlyTrueSpellings_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<bool>("expected");
        QTest::newRow("capitals") << QByteArray("TRUE") << true;
        QTest::newRow("lower") << QByteArray("true") << true;
        QTest::newRow("one") << QByteArray("1") << true;
        QTest::newRow("seven") << QByteArray("7") << true;
        QTest::newRow("False") << QByteArray("False") << false;
        QTest::newRow("zero") << QByteArray("0") << false;
        QTest::newRow("not a number gives default") << QByteArray("yes") << false;
        QTest::newRow("empty gives default") << QByteArray("") << false;
    }
    void isReadOnlyTrueSpellings()
    {
        QFETCH(QByteArray, text);
        QFETCH(bool, expected);
        Workflow workflow;
        QVERIFY(
            LoadFrom(workflow, WorkflowDocument(WorkflowElement("Id=\"a\" IsReadOnly=\"" + text + "\""))));
        QCOMPARE(F(workflow).IsReadOnly, expected);
    }

    void missingLastModifiedTakesCreated()
    {
        Workflow workflow;
        QVERIFY(LoadFrom(workflow,
                         WorkflowDocument(WorkflowElement(R"(Id="a" CreatedDate="2017-05-06T07:08:09")"))));
        QCOMPARE(F(workflow).LastModifiedDate, Utc(2017, 5, 6, 7, 8, 9));
    }

    void missingDatesReadAsEpoch()
    {
        Workflow workflow;
        QVERIFY(LoadFrom(workflow, WorkflowDocument(WorkflowElement(R"(Id="a")"))));
        QCOMPARE(F(workflow).CreatedDate, Utc(1970, 1, 1, 0, 0, 0));
        QCOMPARE(F(workflow).LastModifiedDate, Utc(1970, 1, 1, 0, 0, 0));
        QCOMPARE(workflow.GetCreatedDate(), 0u);
    }

    void malformedDateTakesDefault()
    {
        Workflow workflow;
        QVERIFY(LoadFrom(workflow,
                         WorkflowDocument(WorkflowElement(
                             R"(Id="a" CreatedDate="yesterday" LastModifiedDate="2017-05-06T07:08:09")"))));
        QCOMPARE(F(workflow).CreatedDate, Utc(1970, 1, 1, 0, 0, 0));
        QCOMPARE(F(workflow).LastModifiedDate, Utc(2017, 5, 6, 7, 8, 9));
    }

    void introductionFromCdata()
    {
        Workflow workflow;
        QVERIFY(LoadFrom(workflow,
                         WorkflowDocument(WorkflowElement(
                             R"(Id="a")", "<Introduction><![CDATA[<b>Bold</b> & more]]></Introduction>"))));
        QCOMPARE(F(workflow).Introduction, QStringLiteral("<b>Bold</b> & more"));
    }

    void introductionWithElementFirstIsEmpty()
    {
        Workflow workflow;
        QVERIFY(LoadFrom(workflow, WorkflowDocument(WorkflowElement(
                                       R"(Id="a")", "<Introduction><p>x</p>text</Introduction>"))));
        QCOMPARE(F(workflow).Introduction, QString());
    }

    void loadFindsIdIgnoringCase()
    {
        Workflow workflow;
        QVERIFY(LoadFrom(workflow,
                         WorkflowDocument(WorkflowElement(R"(Id="First" Name="1")") +
                                          "<Other Id=\"Between\" Name=\"x\"/>" +
                                          WorkflowElement(R"(Id="Second" Name="2")")),
                         QStringLiteral("SECOND")));
        QCOMPARE(F(workflow).Name, QStringLiteral("2"));
        QVERIFY(workflow.Load(Wide(Path(QStringLiteral("one.workflow"))), Wide(QStringLiteral("between"))));
        QCOMPARE(F(workflow).Name, QStringLiteral("x"));
    }

    void loadWithEmptyIdTakesFirstWorkflow()
    {
        Workflow workflow;
        QVERIFY(LoadFrom(workflow, WorkflowDocument("<Note/>" + WorkflowElement(R"(Id="First" Name="1")") +
                                                    WorkflowElement(R"(Id="Second" Name="2")"))));
        QCOMPARE(F(workflow).Name, QStringLiteral("1"));
    }

    void loadWithUnknownIdFailsAndKeepsRecord()
    {
        Workflow workflow;
        F(workflow).Name = QStringLiteral("untouched");
        QVERIFY(!LoadFrom(workflow, WorkflowDocument(WorkflowElement(R"(Id="First" Name="1")")),
                          QStringLiteral("Missing")));
        QCOMPARE(F(workflow).Name, QStringLiteral("untouched"));
    }

    void loadWithoutWorkflowElementFails()
    {
        Workflow workflow;
        QVERIFY(!LoadFrom(workflow, WorkflowDocument("<Other Id=\"a\"/>")));
        QVERIFY(F(workflow).Id.isEmpty());
    }

    void loadOfBadFilesFails_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("truncated") << QByteArray("<?xml version=\"1.0\"?><Workflows><Workflow Id=\"a\" Na");
        QTest::newRow("not xml") << QByteArray("\x89PNG\r\n\x1a\n binary stuff \x00\x01\x02", 24);
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("text") << QByteArray("just some words");
    }
    void loadOfBadFilesFails()
    {
        QFETCH(QByteArray, content);
        Workflow workflow;
        F(workflow).Name = QStringLiteral("untouched");
        QVERIFY(!LoadFrom(workflow, content, QString(), QStringLiteral("bad.workflow")));
        QCOMPARE(F(workflow).Name, QStringLiteral("untouched"));
        QVERIFY(!workflow.Load(Wide(Path(QStringLiteral("does-not-exist.workflow"))), Wide(QString())));
    }

    void hugeAttributeIsRead()
    {
        const QByteArray big(10 * 1024 * 1024, 'x');
        Workflow workflow;
        QVERIFY(LoadFrom(workflow,
                         WorkflowDocument(WorkflowElement("Id=\"big\" Description=\"" + big + "\"")),
                         QString(), QStringLiteral("big.workflow")));
        QCOMPARE(F(workflow).Description.size(), big.size());
    }

    void unreadableFileFails()
    {
        if (::geteuid() == 0)
            QSKIP("root reads every file");
        QVERIFY(WriteFile(Path(QStringLiteral("locked.workflow")),
                          WorkflowDocument(WorkflowElement(R"(Id="a")"))));
        QFile::setPermissions(Path(QStringLiteral("locked.workflow")), QFileDevice::Permissions());
        Workflow workflow;
        QVERIFY(!workflow.Load(Wide(Path(QStringLiteral("locked.workflow"))), Wide(QString())));
        QFile::setPermissions(Path(QStringLiteral("locked.workflow")),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }

    void templateReadsShowIntroductionFromUserSettings()
    {
        WorkflowSettingsStore().Write(QStringLiteral("Id_Quiet"), QStringLiteral("ShowIntroductionOnExecute"),
                                      QStringLiteral("FALSE"));
        Workflow quiet;
        QVERIFY(LoadFrom(quiet, WorkflowDocument(WorkflowElement(R"(Id="Id_Quiet")"))));
        QVERIFY(!F(quiet).ShowIntroductionOnExecute);
        F(quiet).ShowIntroductionOnExecute = false;

        Workflow untouched;
        QVERIFY(LoadFrom(untouched, WorkflowDocument(WorkflowElement(R"(Id="Id_Never_Set")"))));
        QVERIFY(F(untouched).ShowIntroductionOnExecute);
    }

    void nonTemplateKeepsItsShowIntroduction()
    {
        WorkflowSettingsStore().Write(QStringLiteral("Id_User"), QStringLiteral("ShowIntroductionOnExecute"),
                                      QStringLiteral("True"));
        Workflow user;
        F(user).ShowIntroductionOnExecute = false;
        QVERIFY(LoadFrom(user, WorkflowDocument(WorkflowElement(R"(Id="Id_User" IsTemplate="false")"))));
        QVERIFY(!F(user).ShowIntroductionOnExecute);
        F(user).IsTemplate = false;
    }

    void writerProducesTheFileLayout()
    {
        Workflow workflow;
        WorkflowFields& f = F(workflow);
        f.IsTemplate = true;
        f.XlfFile = QStringLiteral("Texts");
        f.Plugin = QStringLiteral("P");
        f.TemplateId = QStringLiteral("T");
        f.TemplateImage = QStringLiteral("t.png");
        f.Tooltip = QStringLiteral("tip");
        f.Tag = QStringLiteral("tag");
        f.UIFile = QStringLiteral("ui");
        f.PrimaryProduct = QStringLiteral("pa");
        f.RequiredProducts = QStringLiteral("pa | pb");
        f.TargetProduct = QStringLiteral("pa:1");
        f.RequiredProductsDisplayText = QStringLiteral("PA or PB");
        f.CreatedDate = Utc(2015, 1, 2, 3, 4, 5).toLocalTime();
        f.IsReadOnly = true;
        f.HelpId = QStringLiteral("help");
        f.Description = QStringLiteral("desc");
        f.Keywords = QStringLiteral("kw");
        f.Introduction = QStringLiteral("never written");
        f.Settings = QStringLiteral("<A x=\"1\"/><B>text</B>");
        const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
        QVERIFY(WriteWorkflow(*ImpOf(workflow), QStringLiteral("Given name"),
                              Path(QStringLiteral("out.workflow")), QStringLiteral("Given_Id")));
        QVERIFY(f.LastModifiedDate >= before);

        const QByteArray text = ReadFile(Path(QStringLiteral("out.workflow")));
        QVERIFY(text.startsWith("<?xml version=\"1.0\"?>"));
        QVERIFY(text.contains("\n    <Workflow"));
        QDomDocument document;
        QVERIFY(document.setContent(text));
        QCOMPARE(document.documentElement().tagName(), QStringLiteral("Workflows"));
        QCOMPARE(document.documentElement().attribute(QStringLiteral("XlfFile")), QStringLiteral("Texts"));
        const QDomElement e = document.documentElement().firstChildElement();
        QCOMPARE(e.tagName(), QStringLiteral("Workflow"));
        QVERIFY(e.nextSiblingElement().isNull());
        QCOMPARE(e.attribute(QStringLiteral("Plugin")), QStringLiteral("P"));
        QCOMPARE(e.attribute(QStringLiteral("TemplateId")), QStringLiteral("T"));
        QCOMPARE(e.attribute(QStringLiteral("TemplateImage")), QStringLiteral("t.png"));
        QCOMPARE(e.attribute(QStringLiteral("ModifiedImage")), QString());
        QCOMPARE(e.attribute(QStringLiteral("Tooltip")), QStringLiteral("tip"));
        QCOMPARE(e.attribute(QStringLiteral("Tag")), QStringLiteral("tag"));
        QCOMPARE(e.attribute(QStringLiteral("UIFile")), QStringLiteral("ui"));
        QCOMPARE(e.attribute(QStringLiteral("PrimaryProduct")), QStringLiteral("pa"));
        QCOMPARE(e.attribute(QStringLiteral("RequiredProducts")), QStringLiteral("pa | pb"));
        QCOMPARE(e.attribute(QStringLiteral("TargetProduct")), QStringLiteral("pa:1"));
        QCOMPARE(e.attribute(QStringLiteral("RequiredProductsDisplayText")), QStringLiteral("PA or PB"));
        QCOMPARE(e.attribute(QStringLiteral("CreatedDate")), QStringLiteral("2015-01-02T03:04:05"));
        QCOMPARE(e.attribute(QStringLiteral("LastModifiedDate")),
                 f.LastModifiedDate.toUTC().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")));
        QCOMPARE(e.attribute(QStringLiteral("IsReadOnly")), QStringLiteral("True"));
        QCOMPARE(e.attribute(QStringLiteral("IsTemplate")), QStringLiteral("False"));
        QCOMPARE(e.attribute(QStringLiteral("Id")), QStringLiteral("Given_Id"));
        QCOMPARE(e.attribute(QStringLiteral("HelpId")), QStringLiteral("help"));
        QCOMPARE(e.attribute(QStringLiteral("Name")), QStringLiteral("Given name"));
        QCOMPARE(e.attribute(QStringLiteral("Description")), QStringLiteral("desc"));
        QCOMPARE(e.attribute(QStringLiteral("Keywords")), QStringLiteral("kw"));
        QVERIFY(!e.hasAttribute(QStringLiteral("SourceFile")));
        QVERIFY(e.firstChildElement(QStringLiteral("Introduction")).isNull());
        const QDomElement settings = e.firstChildElement(QStringLiteral("Settings"));
        QVERIFY(!settings.isNull());
        QCOMPARE(settings.firstChildElement().tagName(), QStringLiteral("A"));
        QCOMPARE(settings.firstChildElement().attribute(QStringLiteral("x")), QStringLiteral("1"));
        QCOMPARE(settings.lastChildElement().text(), QStringLiteral("text"));
        // The record's own name and id stay as they were.
        QVERIFY(f.Name.isEmpty());
        QVERIFY(f.Id.isEmpty());
    }

    void writerTakesImageTablesInAscendingWidth()
    {
        Workflow workflow;
        F(workflow).TemplateImage = QStringLiteral("ignored.png");
        F(workflow).ImageTablesBuilt = true;
        F(workflow).TemplateImages = {{48, QStringLiteral("w48.png")},
                                      {16, QStringLiteral("w16.png")},
                                      {32, QStringLiteral("w32.png")}};
        F(workflow).ModifiedImages = {{0, QStringLiteral("broken.png")}, {24, QStringLiteral("m24.png")}};
        QVERIFY(WriteWorkflow(*ImpOf(workflow), QStringLiteral("n"), Path(QStringLiteral("images.workflow")),
                              QStringLiteral("i")));
        const QDomElement e = FirstWorkflowElement(Path(QStringLiteral("images.workflow")));
        QCOMPARE(e.attribute(QStringLiteral("TemplateImage")), QStringLiteral("w16.png|w32.png|w48.png"));
        QCOMPARE(e.attribute(QStringLiteral("ModifiedImage")), QStringLiteral("broken.png|m24.png"));
    }

    void writingATemplateWritesIsTemplateFalse()
    {
        QVERIFY(
            WriteFile(Path(QStringLiteral("template.workflow")),
                      WorkflowDocument(WorkflowElement(R"(Id="Tpl" Name="Template" IsTemplate="True")"))));
        Workflow workflow;
        QVERIFY(workflow.Load(Wide(Path(QStringLiteral("template.workflow"))), Wide(QString())));
        QVERIFY(workflow.IsTemplate());
        QVERIFY(WriteWorkflow(*ImpOf(workflow), QStringLiteral("Copy"), Path(QStringLiteral("copy.workflow")),
                              QStringLiteral("Id_Copy")));
        QCOMPARE(FirstWorkflowElement(Path(QStringLiteral("copy.workflow")))
                     .attribute(QStringLiteral("IsTemplate")),
                 QStringLiteral("False"));
    }

    void nullDateIsWrittenEmpty()
    {
        Workflow workflow;
        QVERIFY(WriteWorkflow(*ImpOf(workflow), QStringLiteral("n"), Path(QStringLiteral("nodate.workflow")),
                              QStringLiteral("i")));
        const QDomElement e = FirstWorkflowElement(Path(QStringLiteral("nodate.workflow")));
        QVERIFY(e.hasAttribute(QStringLiteral("CreatedDate")));
        QCOMPARE(e.attribute(QStringLiteral("CreatedDate")), QString());
    }

    void roundTripKeepsWrittenFieldsAndDropsTheRest()
    {
        QVERIFY(WriteFile(
            Path(QStringLiteral("source.workflow")),
            WorkflowDocument(
                WorkflowElement(
                    R"(Id="Id_R" Name="Round" IsTemplate="False" TemplateId="T" Plugin="P" HelpId="H" )"
                    R"(Description="D" Tooltip="Tip" Tag="G" Keywords="K" UIFile="U" PrimaryProduct="pa" )"
                    R"(TargetProduct="pa:1" RequiredProducts="pa" RequiredProductsDisplayText="PA" )"
                    R"(CreatedDate="2014-02-03T04:05:06" IsReadOnly="True" TemplateImage="t.png" )"
                    R"(ModifiedImage="m.png" Unknown="dropped")",
                    "<Introduction>lost</Introduction><Extra/><Settings><S a=\"1\"/></Settings>"),
                "Texts")));
        Workflow first;
        QVERIFY(first.Load(Wide(Path(QStringLiteral("source.workflow"))), Wide(QString())));
        F(first).XlfFile = QStringLiteral("Texts");
        QVERIFY(
            WriteWorkflow(*ImpOf(first), F(first).Name, Path(QStringLiteral("again.workflow")), F(first).Id));
        Workflow second;
        QVERIFY(second.Load(Wide(Path(QStringLiteral("again.workflow"))), Wide(QString())));
        const WorkflowFields& a = F(first);
        const WorkflowFields& b = F(second);
        QCOMPARE(b.Id, a.Id);
        QCOMPARE(b.Name, a.Name);
        QCOMPARE(b.TemplateId, a.TemplateId);
        QCOMPARE(b.Plugin, a.Plugin);
        QCOMPARE(b.HelpId, a.HelpId);
        QCOMPARE(b.Description, a.Description);
        QCOMPARE(b.Tooltip, a.Tooltip);
        QCOMPARE(b.Tag, a.Tag);
        QCOMPARE(b.Keywords, a.Keywords);
        QCOMPARE(b.UIFile, a.UIFile);
        QCOMPARE(b.PrimaryProduct, a.PrimaryProduct);
        QCOMPARE(b.TargetProduct, a.TargetProduct);
        QCOMPARE(b.RequiredProducts, a.RequiredProducts);
        QCOMPARE(b.RequiredProductsDisplayText, a.RequiredProductsDisplayText);
        QCOMPARE(b.CreatedDate, a.CreatedDate);
        QCOMPARE(b.LastModifiedDate.toSecsSinceEpoch(), a.LastModifiedDate.toSecsSinceEpoch());
        QCOMPARE(b.IsReadOnly, a.IsReadOnly);
        QCOMPARE(b.IsTemplate, a.IsTemplate);
        QCOMPARE(b.TemplateImage, a.TemplateImage);
        QCOMPARE(b.ModifiedImage, a.ModifiedImage);
        QCOMPARE(b.Settings.ToString(), a.Settings.ToString());
        QCOMPARE(a.Introduction, QStringLiteral("lost"));
        QCOMPARE(b.Introduction, QString());
        const QByteArray written = ReadFile(Path(QStringLiteral("again.workflow")));
        QVERIFY(!written.contains("Unknown"));
        QVERIFY(!written.contains("Extra"));
        QVERIFY(written.contains("XlfFile=\"Texts\""));
    }

    // The document writer ends a processing instruction with a line break whatever follows it, and
    // a text after one keeps the break it was read with: such a text gains one break at every
    // write. Everything else in the markup reads back as it was.
    void markupGainsALineBreakAfterAnInstructionAtEachWrite()
    {
        QVERIFY(
            WriteFile(Path(QStringLiteral("instruction.workflow")),
                      WorkflowDocument(WorkflowElement(
                          R"(Id="Id_P" Name="P")", "<Settings>text<Step/><!-- c --><?pi x?>K</Settings>"))));
        Workflow first;
        QVERIFY(first.Load(Wide(Path(QStringLiteral("instruction.workflow"))), Wide(QString())));
        const QString read = QStringLiteral("text<Step/>\n    <!-- c -->\n<?pi x?>\nK");
        QCOMPARE(F(first).Settings.ToString(), read);
        QVERIFY(
            WriteWorkflow(*ImpOf(first), F(first).Name, Path(QStringLiteral("once.workflow")), F(first).Id));
        Workflow second;
        QVERIFY(second.Load(Wide(Path(QStringLiteral("once.workflow"))), Wide(QString())));
        QCOMPARE(F(second).Settings.ToString(), QStringLiteral("text<Step/>\n    <!-- c -->\n<?pi x?>\n\nK"));
        // An instruction followed by nothing but white space or an element reads back as it was.
        QVERIFY(WriteFile(Path(QStringLiteral("instruction.workflow")),
                          WorkflowDocument(WorkflowElement(
                              R"(Id="Id_P" Name="P")", "<Settings><?pi x?> <Step/><?pi y?></Settings>"))));
        Workflow third;
        QVERIFY(third.Load(Wide(Path(QStringLiteral("instruction.workflow"))), Wide(QString())));
        QVERIFY(
            WriteWorkflow(*ImpOf(third), F(third).Name, Path(QStringLiteral("twice.workflow")), F(third).Id));
        Workflow fourth;
        QVERIFY(fourth.Load(Wide(Path(QStringLiteral("twice.workflow"))), Wide(QString())));
        QCOMPARE(F(fourth).Settings, F(third).Settings);
    }
};

QTEST_GUILESS_MAIN(tst_WorkflowFile)
#include "tst_workflowfile.moc"
