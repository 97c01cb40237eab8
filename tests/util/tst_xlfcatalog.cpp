// SPDX-License-Identifier: MIT
// XLIFF translations: finding the file for a locale, reading it, and translating tr(...) texts
// read through the XML filer, including a file made by Qt's own conversion tool.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/WorkflowManagerImp.h"
#include "util/FileUtil.h"
#include "util/XlfCatalog.h"
#include "util/XmlFiler.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <QCoreApplication>
#include <QProcess>
#include <QStringDecoder>
#include <QTemporaryDir>
#include <QtTest>

#include <utility>
#include <vector>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

struct XlfFileElement
{
    const char* original;
    std::vector<std::pair<const char*, const char*>> units; // source as written, target
};

// An XLIFF 1.2 file with one file element per entry, as translation tools write it.
QByteArray Xliff(const std::vector<XlfFileElement>& files)
{
    QByteArray xml = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                     "<xliff version=\"1.2\" xmlns=\"urn:oasis:names:tc:xliff:document:1.2\">\n";
    for (const XlfFileElement& file : files)
    {
        xml += QByteArray("  <file original=\"") + file.original + "\" datatype=\"plaintext\"><body>\n";
        for (const auto& unit : file.units)
        {
            const QString source = QString::fromUtf8(unit.first);
            const QString target = QString::fromUtf8(unit.second);
            xml += "    <trans-unit id=\"" + DigestText(source).toUtf8() + "\">\n";
            xml += "      <source>" + source.toHtmlEscaped().toUtf8() + "</source>\n";
            xml += "      <target>" + target.toHtmlEscaped().toUtf8() + "</target>\n";
            xml += "    </trans-unit>\n";
        }
        xml += "  </body></file>\n";
    }
    return xml + "</xliff>\n";
}

} // namespace

class tst_XlfCatalog : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    QTemporaryDir m_dir;
    QString Path(const QString& name) const { return QDir::cleanPath(m_dir.filePath(name)); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(m_dir.isValid());
    }

    void translatableText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("translatable");
        QTest::newRow("plain") << QStringLiteral("tr(Name)") << true;
        QTest::newRow("blanks around") << QStringLiteral("  tr( Name )  ") << true;
        QTest::newRow("blank before parenthesis") << QStringLiteral("tr (Name)") << true;
        QTest::newRow("tabs") << QStringLiteral("\ttr(Name)\t") << true;
        QTest::newRow("no parenthesis") << QStringLiteral("tr Name") << false;
        QTest::newRow("prefix") << QStringLiteral("xtr(Name)") << false;
        QTest::newRow("unclosed") << QStringLiteral("tr(Name") << false;
        QTest::newRow("text after") << QStringLiteral("tr(Name) more") << false;
        QTest::newRow("capital") << QStringLiteral("TR(Name)") << false;
        QTest::newRow("empty") << QStringLiteral("") << false;
        QTest::newRow("nested") << QStringLiteral("tr(a (b))") << true;
    }
    void translatableText()
    {
        QFETCH(QString, text);
        QFETCH(bool, translatable);
        QCOMPARE(IsTranslatableText(text), translatable);
    }

    void unitIdCoversTheWholeText()
    {
        QCOMPARE(TranslationUnitId(QStringLiteral("tr(Name)")),
                 QStringLiteral("64c82ec2eb6431c640cf21b58d9852c3"));
        QVERIFY(TranslationUnitId(QStringLiteral(" tr(Name)")) !=
                TranslationUnitId(QStringLiteral("tr(Name)")));
    }

    void emptyLocaleMeansTheSystemLocale()
    {
        // main() set the system locale to de_DE before anything read it.
        QVERIFY(WriteFile(Path(QStringLiteral("sys/de-DE/Texts.xlf")), Xliff({})));
        QCOMPARE(FindTranslationFile(QStringLiteral("Texts"), QString(), Path(QStringLiteral("sys"))),
                 Path(QStringLiteral("sys/de-DE/Texts.xlf")));
    }

    void searchPathsAreTriedInOrderSkippingEmptyPieces()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("b/fr-FR/Texts.xlf")), Xliff({})));
        const QString paths = Path(QStringLiteral("a")) + QStringLiteral(";;") + Path(QStringLiteral("b"));
        QCOMPARE(FindTranslationFile(QStringLiteral("Texts"), QStringLiteral("fr-FR"), paths),
                 Path(QStringLiteral("b/fr-FR/Texts.xlf")));
        QVERIFY(WriteFile(Path(QStringLiteral("a/fr-FR/Texts.xlf")), Xliff({})));
        QCOMPARE(FindTranslationFile(QStringLiteral("Texts"), QStringLiteral("fr-FR"), paths),
                 Path(QStringLiteral("a/fr-FR/Texts.xlf")));
    }

    void nameWithoutSuffixGetsXlf()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("n/it-IT/Texts.xlf")), Xliff({})));
        QVERIFY(WriteFile(Path(QStringLiteral("n/it-IT/Texts.fr")), Xliff({})));
        const QString paths = Path(QStringLiteral("n"));
        QCOMPARE(FindTranslationFile(QStringLiteral("Texts"), QStringLiteral("it-IT"), paths),
                 Path(QStringLiteral("n/it-IT/Texts.xlf")));
        QCOMPARE(FindTranslationFile(QStringLiteral("Texts.fr"), QStringLiteral("it-IT"), paths),
                 Path(QStringLiteral("n/it-IT/Texts.fr")));
        // Only the file-name part of the name counts.
        QCOMPARE(FindTranslationFile(QStringLiteral("some/folder/Texts"), QStringLiteral("it-IT"), paths),
                 Path(QStringLiteral("n/it-IT/Texts.xlf")));
    }

    void missingTranslationIsEmpty()
    {
        QVERIFY(
            FindTranslationFile(QString(), QStringLiteral("de-DE"), Path(QStringLiteral("sys"))).isEmpty());
        QVERIFY(FindTranslationFile(QStringLiteral("Absent"), QStringLiteral("de-DE"),
                                    Path(QStringLiteral("sys")))
                    .isEmpty());
    }

    // The folder every test program runs from is shared by the tests running side by side, so the
    // translation goes beside a copy of a small program in a folder of this test's own.
    void applicationFolderIsTheLastResort()
    {
        QTemporaryDir folder;
        QVERIFY(folder.isValid());
        const QString program = folder.filePath(QStringLiteral("translation_child"));
        QVERIFY(QFile::copy(ApplicationFolder() + QStringLiteral("/translation_child"), program));
        const auto find = [&program, this]() -> QByteArray {
            QProcess process;
            process.start(program,
                          {QStringLiteral("LastResort"), QStringLiteral("zz-ZZ"), Path(QStringLiteral("a"))});
            if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit ||
                process.exitCode() != 0)
                return "failed: " + process.readAllStandardError();
            return process.readAllStandardOutput().trimmed();
        };
        QCOMPARE(find(), QByteArray());
        QVERIFY(WriteFile(folder.filePath(QStringLiteral("zz-ZZ/LastResort.xlf")), Xliff({})));
        QCOMPARE(find(), QFile::encodeName(QFileInfo(folder.path()).canonicalFilePath() +
                                           QStringLiteral("/zz-ZZ/LastResort.xlf")));
    }

    void laterUnitAndLaterFileElementWin()
    {
        const QString path = Path(QStringLiteral("catalogue.xlf"));
        QVERIFY(WriteFile(path, Xliff({{"C:\\Sources\\First.WORKFLOW",
                                        {{"tr(A)", "first A"}, {"tr(B)", "first B"}, {"tr(A)", "second A"}}},
                                       {"Other.workflow", {{"tr(A)", "other A"}}},
                                       {"/elsewhere/first.workflow", {{"tr(B)", "replacing B"}}}})));
        XlfCatalog catalogue(path);
        QVERIFY(!catalogue.IsLoaded());
        const QString id = TranslationUnitId(QStringLiteral("tr(A)"));
        // The third file element shares the key "first.workflow" and replaces the first one.
        QVERIFY(catalogue.Lookup(QStringLiteral("first.workflow"), id).isNull());
        QVERIFY(catalogue.IsLoaded());
        QCOMPARE(
            catalogue.Lookup(QStringLiteral("first.workflow"), TranslationUnitId(QStringLiteral("tr(B)"))),
            QStringLiteral("replacing B"));
        QCOMPARE(catalogue.Lookup(QStringLiteral("other.workflow"), id), QStringLiteral("other A"));
    }

    void laterUnitOfOneFileWins()
    {
        const QString path = Path(QStringLiteral("twice.xlf"));
        QVERIFY(WriteFile(path, Xliff({{"x.workflow", {{"tr(A)", "first"}, {"tr(A)", "second"}}}})));
        XlfCatalog catalogue(path);
        QCOMPARE(catalogue.Lookup(QStringLiteral("x.workflow"), TranslationUnitId(QStringLiteral("tr(A)"))),
                 QStringLiteral("second"));
    }

    void catalogueIsReadOnce()
    {
        const QString path = Path(QStringLiteral("once.xlf"));
        QVERIFY(WriteFile(path, Xliff({{"x.workflow", {{"tr(A)", "before"}}}})));
        XlfCatalog catalogue(path);
        const QString id = TranslationUnitId(QStringLiteral("tr(A)"));
        QCOMPARE(catalogue.Lookup(QStringLiteral("x.workflow"), id), QStringLiteral("before"));
        QVERIFY(WriteFile(path, Xliff({{"x.workflow", {{"tr(A)", "after"}}}})));
        QCOMPARE(catalogue.Lookup(QStringLiteral("x.workflow"), id), QStringLiteral("before"));
    }

    // A file may declare an encoding such as UTF-7, which can decode an id into half a surrogate
    // pair: "+3c89" decodes to U+DDCF, and its two bits left over to a replacement character. The
    // catalogue reads the file as every XML file is read, without the characters no XML file may
    // hold, and finds the unit by the id so read.
    void unitIdsAreReadWithoutCharactersNoXmlFileHolds()
    {
        if (!QStringDecoder("UTF-7").isValid())
            QSKIP("This Qt cannot decode UTF-7.");
        const QString path = Path(QStringLiteral("utf7.xlf"));
        QVERIFY(WriteFile(
            path, "<?xml version=\"1.0\" encoding=\"utf-7\"?>\n"
                  "<xliff version=\"1.2\"><file original=\"x.workflow\"><body>\n"
                  "<trans-unit id=\"abc+3c89\"><source>s</source><target>halved</target></trans-unit>\n"
                  "<trans-unit id=\"plain\"><source>s</source><target>whole</target></trans-unit>\n"
                  "</body></file></xliff>\n"));
        XlfCatalog catalogue(path);
        const QString read = QStringLiteral("abc") + QChar(0xFFFD);
        QCOMPARE(catalogue.Lookup(QStringLiteral("x.workflow"), read), QStringLiteral("halved"));
        // Not by the id as decoded, half the pair included.
        const QString decoded = QStringLiteral("abc") + QChar(0xDDCF) + QChar(0xFFFD);
        QVERIFY(catalogue.Lookup(QStringLiteral("x.workflow"), decoded).isNull());
        QVERIFY(catalogue.Lookup(QStringLiteral("x.workflow"), QStringLiteral("abc+3c89")).isNull());
        QCOMPARE(catalogue.Lookup(QStringLiteral("x.workflow"), QStringLiteral("plain")),
                 QStringLiteral("whole"));
    }

    void brokenCatalogueTranslatesNothing_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("not xml") << QByteArray("garbage");
        QTest::newRow("truncated") << Xliff({{"x.workflow", {{"tr(A)", "a"}}}}).left(120);
        QTest::newRow("no body") << QByteArray("<xliff><file original=\"x.workflow\"/></xliff>");
        QTest::newRow("unit without target") << QByteArray(
            "<xliff><file original=\"x.workflow\"><body><trans-unit id=\"1\"/></body></file></xliff>");
    }
    void brokenCatalogueTranslatesNothing()
    {
        QFETCH(QByteArray, content);
        const QString path = Path(QStringLiteral("broken.xlf"));
        QVERIFY(WriteFile(path, content));
        XlfCatalog catalogue(path);
        QVERIFY(catalogue.Lookup(QStringLiteral("x.workflow"), TranslationUnitId(QStringLiteral("tr(A)")))
                    .isNull());
        XlfCatalog missing(Path(QStringLiteral("missing.xlf")));
        QVERIFY(missing.Lookup(QStringLiteral("x.workflow"), QStringLiteral("1")).isNull());
    }

    void filerTranslatesAttributesAndTextsOfItsOwnFile()
    {
        const QString xlf = Path(QStringLiteral("filer.xlf"));
        QVERIFY(WriteFile(
            xlf, Xliff({{"Sample.workflow", {{"tr(Name)", "Der Name"}, {"  tr( Intro ) ", "Einleitung"}}},
                        {"Elsewhere.workflow", {{"tr(Other)", "Anderes"}}}})));
        QVERIFY(WriteFile(
            Path(QStringLiteral("files/Sample.workflow")),
            "<Workflows><Workflow Name=\"tr(Name)\" Other=\"tr(Other)\" Plain=\"Name\" Missing=\"tr(None)\">"
            "<Introduction>  tr( Intro ) </Introduction></Workflow></Workflows>"));
        XlfCatalog catalogue(xlf);
        XmlFiler filer;
        filer.SetTranslator(&catalogue);
        QVERIFY(filer.Open(Path(QStringLiteral("files/Sample.workflow"))));
        QVERIFY(filer.GoToPath(QStringLiteral("Workflow")));
        QCOMPARE(filer.GetAttribute(QStringLiteral("Name"), QString()), QStringLiteral("Der Name"));
        // Units are per source file: another file's translation is not used.
        QCOMPARE(filer.GetAttribute(QStringLiteral("Other"), QString()), QStringLiteral("tr(Other)"));
        QCOMPARE(filer.GetAttribute(QStringLiteral("Plain"), QString()), QStringLiteral("Name"));
        QCOMPARE(filer.GetAttribute(QStringLiteral("Missing"), QString()), QStringLiteral("tr(None)"));
        QVERIFY(filer.GoToPath(QStringLiteral("Introduction")));
        QCOMPARE(filer.GetText(), QStringLiteral("Einleitung"));

        XmlFiler untranslated(false);
        untranslated.SetTranslator(&catalogue);
        QVERIFY(untranslated.Open(Path(QStringLiteral("files/Sample.workflow"))));
        QVERIFY(untranslated.GoToPath(QStringLiteral("Workflow")));
        QCOMPARE(untranslated.GetAttribute(QStringLiteral("Name"), QString()), QStringLiteral("tr(Name)"));
    }

    void unitWithEmptyOrMissingTargetTranslatesToEmpty()
    {
        const QByteArray a = DigestText(QStringLiteral("tr(A)")).toUtf8();
        const QByteArray b = DigestText(QStringLiteral("tr(B)")).toUtf8();
        const QByteArray c = DigestText(QStringLiteral("tr(C)")).toUtf8();
        const QString path = Path(QStringLiteral("empty-targets.xlf"));
        QVERIFY(WriteFile(path, "<xliff><file original=\"x.workflow\"><body>"
                                "<trans-unit id=\"" +
                                    a +
                                    "\"><source>tr(A)</source><target/></trans-unit>"
                                    "<trans-unit id=\"" +
                                    b +
                                    "\"><source>tr(B)</source><target></target></trans-unit>"
                                    "<trans-unit id=\"" +
                                    c +
                                    "\"><source>tr(C)</source></trans-unit>"
                                    "</body></file></xliff>"));
        XlfCatalog catalogue(path);
        for (const QByteArray& id : {a, b, c})
        {
            const QString found = catalogue.Lookup(QStringLiteral("x.workflow"), QString::fromLatin1(id));
            QVERIFY(!found.isNull());
            QVERIFY(found.isEmpty());
        }
        QVERIFY(catalogue.Lookup(QStringLiteral("x.workflow"), TranslationUnitId(QStringLiteral("tr(D)")))
                    .isNull());

        // Read through the filer, the empty translation replaces the text.
        QVERIFY(WriteFile(Path(QStringLiteral("files/x.workflow")),
                          "<Workflows><Workflow Name=\"tr(A)\" Other=\"tr(D)\"/></Workflows>"));
        XmlFiler filer;
        filer.SetTranslator(&catalogue);
        QVERIFY(filer.Open(Path(QStringLiteral("files/x.workflow"))));
        QVERIFY(filer.GoToPath(QStringLiteral("Workflow")));
        QCOMPARE(filer.GetAttribute(QStringLiteral("Name"), QStringLiteral("default")), QString());
        QCOMPARE(filer.GetAttribute(QStringLiteral("Other"), QString()), QStringLiteral("tr(D)"));
    }

    void fileNamePartIsTakenAtEitherSeparator()
    {
        QCOMPARE(SourceFileKey(QStringLiteral("C:\\Data\\W.workflow")), QStringLiteral("w.workflow"));
        QCOMPARE(SourceFileKey(QStringLiteral("/data/Sub\\W.workflow")), QStringLiteral("w.workflow"));
        QCOMPARE(SourceFileKey(QStringLiteral("W.workflow")), QStringLiteral("w.workflow"));

        const QString xlf = Path(QStringLiteral("windows.xlf"));
        QVERIFY(WriteFile(xlf, Xliff({{"C:\\Data\\W.workflow", {{"tr(Name)", "Name aus Windows"}}}})));
        XlfCatalog catalogue(xlf);
        QCOMPARE(
            catalogue.Lookup(QStringLiteral("w.workflow"), TranslationUnitId(QStringLiteral("tr(Name)"))),
            QStringLiteral("Name aus Windows"));

        QVERIFY(WriteFile(Path(QStringLiteral("seps/de-DE/Texts.xlf")), Xliff({})));
        QCOMPARE(FindTranslationFile(QStringLiteral("lang\\Texts"), QStringLiteral("de-DE"),
                                     Path(QStringLiteral("seps"))),
                 Path(QStringLiteral("seps/de-DE/Texts.xlf")));
        QCOMPARE(FindTranslationFile(QStringLiteral("lang/Texts"), QStringLiteral("de-DE"),
                                     Path(QStringLiteral("seps"))),
                 Path(QStringLiteral("seps/de-DE/Texts.xlf")));
    }

    void unicodeBlanksAroundTranslatableText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("no-break space")
            << (QString(QChar(0x00A0)) + QStringLiteral("tr(Name)") + QChar(0x00A0));
        QTest::newRow("ideographic space") << (QString(QChar(0x3000)) + QStringLiteral("tr") + QChar(0x3000) +
                                               QStringLiteral("(Name)") + QChar(0x3000));
        QTest::newRow("mixed") << (QStringLiteral(" \t") + QChar(0x2003) + QStringLiteral("tr(Name)") +
                                   QChar(0x00A0));
    }
    void unicodeBlanksAroundTranslatableText()
    {
        QFETCH(QString, text);
        QVERIFY(IsTranslatableText(text));
        QVERIFY(!IsTranslatableText(QChar(0x00A0) + QStringLiteral("xtr(Name)")));
    }

    // A translation file made by a tool we did not write: a Qt Linguist file whose message ids
    // are our unit ids, converted to XLIFF by lconvert, read by a workflow load.
    void lconvertMadeXliffTranslatesAWorkflow()
    {
        const QString lconvert = QStringLiteral(VMWF_LCONVERT);
        if (lconvert.isEmpty() || !QFileInfo(lconvert).isExecutable())
            QFAIL("lconvert from qt6-l10n-tools is needed; scripts/dependencies.sh installs it");

        const QList<QPair<QString, QString>> messages = {
            {QStringLiteral("tr(Monthly report)"), QStringLiteral("Monatsbericht")},
            {QStringLiteral("tr(Collects the figures of a month.)"),
             QStringLiteral("Sammelt die Zahlen eines Monats.")},
            {QStringLiteral("tr(Read this first & then <go>.)"),
             QStringLiteral("Zuerst lesen & dann <los>.")},
        };
        QByteArray ts =
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<!DOCTYPE TS>\n"
            "<TS version=\"2.1\" language=\"de_DE\" sourcelanguage=\"en_US\">\n<context>\n<name></name>\n";
        for (const auto& message : messages)
        {
            ts += "<message id=\"" + DigestText(message.first).toUtf8() + "\">\n";
            ts += "<location filename=\"Converted.workflow\" line=\"1\"/>\n";
            ts += "<source>" + message.first.toHtmlEscaped().toUtf8() + "</source>\n";
            ts += "<translation>" + message.second.toHtmlEscaped().toUtf8() + "</translation>\n</message>\n";
        }
        ts += "</context>\n</TS>\n";
        QVERIFY(WriteFile(Path(QStringLiteral("linguist/Converted.ts")), ts));
        QDir().mkpath(Path(QStringLiteral("translations/de-DE")));

        QProcess convert;
        convert.start(lconvert, {QStringLiteral("-i"), Path(QStringLiteral("linguist/Converted.ts")),
                                 QStringLiteral("-of"), QStringLiteral("xlf"), QStringLiteral("-o"),
                                 Path(QStringLiteral("translations/de-DE/ConvertedTexts.xlf"))});
        QVERIFY(convert.waitForFinished(30000));
        QCOMPARE(convert.exitCode(), 0);
        QVERIFY(ReadFile(Path(QStringLiteral("translations/de-DE/ConvertedTexts.xlf"))).contains("<xliff"));

        QVERIFY(WriteFile(Path(QStringLiteral("converted/Converted.workflow")),
                          "<?xml version=\"1.0\"?>\n<Workflows XlfFile=\"ConvertedTexts\">"
                          "<Workflow Id=\"Id_Converted\" Name=\"" +
                              messages[0].first.toUtf8() + "\" Description=\"" +
                              messages[1].first.toHtmlEscaped().toUtf8() +
                              "\">"
                              "<Introduction><![CDATA[" +
                              messages[2].first.toUtf8() +
                              "]]></Introduction>"
                              "</Workflow></Workflows>\n"));

        QVERIFY(WorkflowManager::Initialize());
        WorkflowManager* manager = WorkflowManager::GetInstance();
        manager->SetWorkflowSearchPaths(Wide(Path(QStringLiteral("translations"))));
        manager->SetCurrentLocale(Wide(QStringLiteral("de-DE")));
        {
            Workflow workflow;
            QVERIFY(
                workflow.Load(Wide(Path(QStringLiteral("converted/Converted.workflow"))), Wide(QString())));
            QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetName(b, s); }),
                     messages[0].second);
            QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetDescription(b, s); }),
                     messages[1].second);
            QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetIntroduction(b, s); }),
                     messages[2].second);
        }
        manager->SetCurrentLocale(Wide(QStringLiteral("fr-FR")));
        {
            Workflow workflow;
            QVERIFY(
                workflow.Load(Wide(Path(QStringLiteral("converted/Converted.workflow"))), Wide(QString())));
            QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetName(b, s); }), messages[0].first);
        }
        QVERIFY(WorkflowManager::Uninitialize());
    }
};

int main(int argc, char** argv)
{
    // The system locale is read once; it must be German before anything asks.
    qputenv("LC_ALL", "de_DE.UTF-8");
    qputenv("LANG", "de_DE.UTF-8");
    QCoreApplication app(argc, argv);
    tst_XlfCatalog test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_xlfcatalog.moc"
