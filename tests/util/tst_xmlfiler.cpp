// SPDX-License-Identifier: MIT
// The XML filer: opening, saving, the cursor and its paths, typed readers, inner markup.

#include "util/XmlFiler.h"

#include "FileFixtures.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimeZone>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

const QByteArray kTree = R"(<?xml version="1.0"?>
<Root Flag="TRUE">
    <A Name="first">
        <B Name="b1"/>
        <B Name="b2"/>
    </A>
    <A Name="second">
        <B Name="b3"/>
    </A>
    <C>text of C</C>
    <D><![CDATA[<kept> & raw]]></D>
    <E><Inner/>tail</E>
</Root>
)";

} // namespace

class tst_XmlFiler : public QObject
{
    Q_OBJECT
private:
    QTemporaryDir m_dir;
    QString Path(const QString& name) const { return m_dir.filePath(name); }
    bool OpenTree(XmlFiler& filer)
    {
        return WriteFile(Path(QStringLiteral("tree.xml")), kTree) &&
               filer.Open(Path(QStringLiteral("tree.xml")));
    }

private slots:
    void initTestCase() { QVERIFY(m_dir.isValid()); }

    void openPutsCursorOnDocumentElement()
    {
        XmlFiler filer;
        QVERIFY(filer.GetCurrentPath().isEmpty());
        QVERIFY(OpenTree(filer));
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root"));
        QCOMPARE(filer.GetFileName(), Path(QStringLiteral("tree.xml")));
    }

    void openOfBadFilesFails_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("not xml") << QByteArray("this is not markup at all\n");
        QTest::newRow("truncated") << kTree.left(kTree.size() / 2);
        QTest::newRow("binary") << QByteArray("\x00\x01\xff\xfe<\x00", 6);
    }
    void openOfBadFilesFails()
    {
        QFETCH(QByteArray, content);
        QVERIFY(WriteFile(Path(QStringLiteral("bad.xml")), content));
        XmlFiler filer;
        QVERIFY(!filer.Open(Path(QStringLiteral("bad.xml"))));
        QVERIFY(filer.GetFileName().isEmpty());
        QVERIFY(filer.GetCurrentPath().isEmpty());
        QVERIFY(filer.GetDocumentElement().isNull());
    }

    void openOfMissingFileFails()
    {
        XmlFiler filer;
        QVERIFY(!filer.Open(Path(QStringLiteral("nowhere.xml"))));
        QVERIFY(!filer.Open(QString()));
    }

    void openOfFolderFails()
    {
        QDir().mkpath(Path(QStringLiteral("folder.xml")));
        XmlFiler filer;
        QVERIFY(!filer.Open(Path(QStringLiteral("folder.xml"))));
    }

    void openOfPipeFailsWithoutBlocking()
    {
        const QString pipe = Path(QStringLiteral("pipe.xml"));
        QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        XmlFiler filer;
        QVERIFY(!filer.Open(pipe)); // nobody writes to the pipe: opening it for reading would wait for ever
        QVERIFY(!filer.Open(QStringLiteral("/dev/null")));
    }

    void openOfUnreadableFileFails()
    {
        if (::geteuid() == 0)
            QSKIP("root reads every file");
        QVERIFY(WriteFile(Path(QStringLiteral("locked.xml")), kTree));
        QFile::setPermissions(Path(QStringLiteral("locked.xml")), QFileDevice::Permissions());
        XmlFiler filer;
        QVERIFY(!filer.Open(Path(QStringLiteral("locked.xml"))));
    }

    void failedOpenKeepsPreviousDocument()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        QVERIFY(WriteFile(Path(QStringLiteral("bad.xml")), "<Root>"));
        QVERIFY(!filer.Open(Path(QStringLiteral("bad.xml"))));
        QCOMPARE(filer.GetDocumentElement().tagName(), QStringLiteral("Root"));
        QCOMPARE(filer.GetFileName(), Path(QStringLiteral("tree.xml")));
    }

    void absolutePathFromAnywhere()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        QVERIFY(filer.GoToPath(QStringLiteral("C")));
        QVERIFY(filer.GoToPath(QStringLiteral("/Root/A/B")));
        QCOMPARE(filer.GetAttribute(QStringLiteral("Name"), QString()), QStringLiteral("b1"));
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root/A/B"));
    }

    void absolutePathWithoutRootName()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        QVERIFY(filer.GoToPath(QStringLiteral("/A/B")));
        QCOMPARE(filer.GetAttribute(QStringLiteral("Name"), QString()), QStringLiteral("b1"));
    }

    void backslashPathIsRelative()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        QVERIFY(filer.GoToPath(QStringLiteral("A\\B")));
        QCOMPARE(filer.GetAttribute(QStringLiteral("Name"), QString()), QStringLiteral("b1"));
        // Relative to the cursor, which now is a B without children.
        QVERIFY(!filer.GoToPath(QStringLiteral("A\\B")));
        QCOMPARE(filer.GetAttribute(QStringLiteral("Name"), QString()), QStringLiteral("b1"));
        QVERIFY(filer.GoToPath(QStringLiteral("\\Root\\C")));
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root/C"));
    }

    void emptyPathDoesNotMove()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        QVERIFY(filer.GoToPath(QStringLiteral("A")));
        QVERIFY(filer.GoToPath(QString()));
        QVERIFY(filer.GoToPath(QStringLiteral("   ")));
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root/A"));
    }

    void missingPathRestoresCursor()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        QVERIFY(filer.GoToPath(QStringLiteral("A")));
        QVERIFY(!filer.GoToPath(QStringLiteral("/Root/A/Nothing")));
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root/A"));
        QCOMPARE(filer.GetAttribute(QStringLiteral("Name"), QString()), QStringLiteral("first"));
    }

    void firstChildAndNextSiblingTakeAnyTag()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        QVERIFY(filer.GoToFirstChild());
        QStringList tags;
        do
            tags << filer.GetCurrentElement().tagName();
        while (filer.GoToNextSibling());
        QCOMPARE(tags, (QStringList{QStringLiteral("A"), QStringLiteral("A"), QStringLiteral("C"),
                                    QStringLiteral("D"), QStringLiteral("E")}));
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root/E"));
        QVERIFY(filer.GoToPath(QStringLiteral("/Root/C")));
        QVERIFY(!filer.GoToFirstChild()); // only a text child
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root/C"));
    }

    void nullCursorMovesNowhere()
    {
        XmlFiler filer;
        QVERIFY(!filer.GoToFirstChild());
        QVERIFY(!filer.GoToNextSibling());
        QVERIFY(!filer.GoToPath(QStringLiteral("A")));
        QCOMPARE(filer.GetAttribute(QStringLiteral("X"), QStringLiteral("dflt")), QStringLiteral("dflt"));
        QVERIFY(filer.GetText().isEmpty());
        QVERIFY(filer.GetInnerXml().isEmpty());
        QVERIFY(!filer.SetAttribute(QStringLiteral("X"), QStringLiteral("1")));
    }

    void createPathBuildsMissingElements()
    {
        XmlFiler filer;
        QVERIFY(filer.GoToOrCreatePath(QStringLiteral("/Settings/Workflows/Workflow"), true, false));
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Settings/Workflows/Workflow"));
        QCOMPARE(filer.GetDocumentElement().tagName(), QStringLiteral("Settings"));
        // A second call finds what the first one made.
        QVERIFY(filer.GoToOrCreatePath(QStringLiteral("/Settings/Workflows/Workflow"), true, false));
        QCOMPARE(filer.GetDocumentElement().firstChildElement().childNodes().count(), 1);
    }

    void appendNewLastBuildsAList()
    {
        XmlFiler filer;
        filer.Create(QStringLiteral("List"));
        for (int i = 0; i < 3; ++i)
        {
            QVERIFY(filer.GoToOrCreatePath(QStringLiteral("/List/Item"), true, true));
            QVERIFY(filer.SetAttribute(QStringLiteral("N"), QString::number(i)));
        }
        const QDomElement list = filer.GetDocumentElement();
        QCOMPARE(list.childNodes().count(), 3);
        QCOMPARE(list.lastChildElement().attribute(QStringLiteral("N")), QStringLiteral("2"));
    }

    void createClearFailsAndRestores()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        QVERIFY(filer.GoToPath(QStringLiteral("C")));
        QVERIFY(!filer.GoToOrCreatePath(QStringLiteral("/Root/Missing/Deeper"), false, false));
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root/C"));
        QVERIFY(filer.GetDocumentElement().firstChildElement(QStringLiteral("Missing")).isNull());
    }

    void removeElementKeepsCursor()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        QVERIFY(filer.GoToPath(QStringLiteral("C")));
        filer.RemoveElement(QStringLiteral("/Root/A"));
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root/C"));
        QVERIFY(filer.GoToPath(QStringLiteral("/Root/A")));
        QCOMPARE(filer.GetAttribute(QStringLiteral("Name"), QString()), QStringLiteral("second"));
        filer.RemoveElement(QStringLiteral("/Root/Nothing"));
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root/A"));
    }

    void removeCurrentElementLeavesCursorWhereItWas()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        QVERIFY(filer.GoToPath(QStringLiteral("E")));
        filer.RemoveElement(QString()); // the empty path names the current element
        QVERIFY(filer.GetDocumentElement().firstChildElement(QStringLiteral("E")).isNull());
    }

    void currentPathOfNestedElement()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        QVERIFY(filer.GoToPath(QStringLiteral("A/B")));
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root/A/B"));
    }

    void boolAttribute_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("defaultValue");
        QTest::addColumn<bool>("expected");
        QTest::newRow("TRUE") << QStringLiteral("TRUE") << false << true;
        QTest::newRow("true") << QStringLiteral("true") << false << true;
        QTest::newRow("False") << QStringLiteral("False") << true << false;
        QTest::newRow("2") << QStringLiteral("2") << false << true;
        QTest::newRow("1") << QStringLiteral("1") << false << true;
        QTest::newRow("0") << QStringLiteral("0") << true << false;
        QTest::newRow("yes default false") << QStringLiteral("yes") << false << false;
        QTest::newRow("yes default true") << QStringLiteral("yes") << true << true;
        QTest::newRow("negative") << QStringLiteral("-1") << true << true;
        QTest::newRow("negative default false") << QStringLiteral("-1") << false << false;
        QTest::newRow("empty") << QStringLiteral("") << true << true;
        QTest::newRow("blank true") << QStringLiteral(" true") << false << false;
    }
    void boolAttribute()
    {
        QFETCH(QString, text);
        QFETCH(bool, defaultValue);
        QFETCH(bool, expected);
        XmlFiler filer;
        filer.Create(QStringLiteral("R"));
        filer.SetAttribute(QStringLiteral("V"), text);
        QCOMPARE(filer.GetBoolAttribute(QStringLiteral("V"), defaultValue), expected);
    }

    void absentBoolTakesDefault()
    {
        XmlFiler filer;
        filer.Create(QStringLiteral("R"));
        QCOMPARE(filer.GetBoolAttribute(QStringLiteral("V"), true), true);
        QCOMPARE(filer.GetBoolAttribute(QStringLiteral("V"), false), false);
    }

    void dateTimeIsUtcShownInLocalTime()
    {
        XmlFiler filer;
        filer.Create(QStringLiteral("R"));
        filer.SetAttribute(QStringLiteral("When"), QStringLiteral("2016-02-29T23:30:15"));
        const QDateTime read = filer.GetDateTimeAttribute(QStringLiteral("When"), QDateTime());
        QCOMPARE(read.timeSpec(), Qt::LocalTime);
        QCOMPARE(read.toUTC(), QDateTime(QDate(2016, 2, 29), QTime(23, 30, 15), QTimeZone::utc()));
    }

    void dateTimeDefaults()
    {
        XmlFiler filer;
        filer.Create(QStringLiteral("R"));
        const QDateTime fallback(QDate(2001, 1, 1), QTime(1, 2, 3), QTimeZone::utc());
        QCOMPARE(filer.GetDateTimeAttribute(QStringLiteral("Absent"), fallback), fallback);
        filer.SetAttribute(QStringLiteral("Empty"), QString());
        QCOMPARE(filer.GetDateTimeAttribute(QStringLiteral("Empty"), fallback), fallback);
        filer.SetAttribute(QStringLiteral("Bad"), QStringLiteral("yesterday"));
        QCOMPARE(filer.GetDateTimeAttribute(QStringLiteral("Bad"), fallback), fallback);
    }

    void textOfTextAndCdataChildren()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        QVERIFY(filer.GoToPath(QStringLiteral("C")));
        QCOMPARE(filer.GetText(), QStringLiteral("text of C"));
        QVERIFY(filer.GoToPath(QStringLiteral("/Root/D")));
        QCOMPARE(filer.GetText(), QStringLiteral("<kept> & raw"));
        QVERIFY(filer.GoToPath(QStringLiteral("/Root/E")));
        QVERIFY(filer.GetText().isEmpty()); // the first child is an element
        QVERIFY(filer.GoToPath(QStringLiteral("/Root/A/B")));
        QVERIFY(filer.GetText().isEmpty()); // no children at all
    }

    void innerXmlIsIndentedByFour()
    {
        XmlFiler filer;
        QVERIFY(WriteFile(Path(QStringLiteral("inner.xml")),
                          "<R><S><Step A=\"1\"><Sub/></Step><Step A=\"2\"/></S></R>"));
        QVERIFY(filer.Open(Path(QStringLiteral("inner.xml"))));
        QVERIFY(filer.GoToPath(QStringLiteral("S")));
        // Each child is written as Qt writes a node below its parent: one indentation step deep.
        QCOMPARE(filer.GetInnerXml(),
                 QStringLiteral("    <Step A=\"1\">\n        <Sub/>\n    </Step>\n    <Step A=\"2\"/>\n"));
    }

    void appendXmlAppendsInOrder()
    {
        XmlFiler filer;
        filer.Create(QStringLiteral("R"));
        QVERIFY(filer.AppendXml(QStringLiteral("<A/><B/>")));
        QVERIFY(filer.AppendXml(QStringLiteral("<C>c</C>")));
        QStringList tags;
        for (QDomElement e = filer.GetDocumentElement().firstChildElement(); !e.isNull();
             e = e.nextSiblingElement())
            tags << e.tagName();
        QCOMPARE(tags, (QStringList{QStringLiteral("A"), QStringLiteral("B"), QStringLiteral("C")}));
    }

    void appendXmlOfUnclosedElementFails()
    {
        XmlFiler filer;
        filer.Create(QStringLiteral("R"));
        QVERIFY(!filer.AppendXml(QStringLiteral("<A>")));
        QVERIFY(!filer.AppendXml(QString()));
        QVERIFY(!filer.GetDocumentElement().hasChildNodes());
    }

    void appendXmlIntoEmptyDocumentMakesRoot()
    {
        XmlFiler filer;
        QVERIFY(filer.AppendXml(QStringLiteral("<A/>")));
        QCOMPARE(filer.GetDocumentElement().tagName(), QStringLiteral("Root"));
        QCOMPARE(filer.GetDocumentElement().firstChildElement().tagName(), QStringLiteral("A"));
    }

    void ensureXmlDeclarationTwiceAddsOne()
    {
        XmlFiler filer;
        filer.Create(QStringLiteral("R"));
        filer.EnsureXmlDeclaration();
        filer.EnsureXmlDeclaration();
        int declarations = 0;
        for (QDomNode n = filer.GetDocument().firstChild(); !n.isNull(); n = n.nextSibling())
            declarations += n.isProcessingInstruction() ? 1 : 0;
        QCOMPARE(declarations, 1);
        QVERIFY(filer.GetDocument().firstChild().isProcessingInstruction());
        QVERIFY(filer.Save(Path(QStringLiteral("decl.xml"))));
        QVERIFY(ReadFile(Path(QStringLiteral("decl.xml"))).startsWith("<?xml version=\"1.0\"?>\n<R/>"));
    }

    void declarationOfOpenedFileIsKept()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        filer.EnsureXmlDeclaration();
        QVERIFY(filer.Save(Path(QStringLiteral("again.xml"))));
        QCOMPARE(ReadFile(Path(QStringLiteral("again.xml"))).count("<?xml"), 1);
    }

    void declarationGoesBeforeWhatPrecedesTheRoot_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("comment") << QByteArray("<!-- kept --><Root A=\"1\"/>");
        QTest::newRow("instruction") << QByteArray("<?xm0l version=\"1.0\"?>\n<Root A=\"1\"/>");
        QTest::newRow("both") << QByteArray("<?pi x?><!-- c -->\n<Root A=\"1\"><B/></Root>");
    }
    void declarationGoesBeforeWhatPrecedesTheRoot()
    {
        // A file whose root has a comment or an instruction before it stays readable once saved.
        QFETCH(QByteArray, content);
        const QString path = Path(QStringLiteral("preceded.xml"));
        QVERIFY(WriteFile(path, content));
        XmlFiler filer(false);
        QVERIFY(filer.Open(path));
        filer.EnsureXmlDeclaration();
        QVERIFY(filer.Save(path));
        QVERIFY(ReadFile(path).startsWith("<?xml version=\"1.0\"?>"));
        XmlFiler again(false);
        QVERIFY(again.Open(path));
        QCOMPARE(again.GetAttribute(QStringLiteral("A"), QString()), QStringLiteral("1"));
        QCOMPARE(ReadFile(path).count("<?xml "), 1);
    }

    void savedFileDeclaresTheEncodingItIsWrittenIn_data()
    {
        QTest::addColumn<QByteArray>("content");
        // An encoding the writer does not know: the file was once written in UTF-8 but still
        // declared it, and read back as something else.
        QTest::newRow("unknown") << QByteArray(
            "<?xml version=\"1.0\" encoding=\"utf-7\"?>\n<Root>\n  \0\0\0>   </Root>\n", 63);
        QTest::newRow("latin-1") << QByteArray(
            "<?xml version='1.0' encoding='ISO-8859-1'?><Root>caf\xe9</Root>");
        QTest::newRow("utf-8") << QByteArray(
            "<?xml version=\"1.0\" encoding=\"utf-8\"?><Root>caf\xc3\xa9</Root>");
    }
    void savedFileDeclaresTheEncodingItIsWrittenIn()
    {
        QFETCH(QByteArray, content);
        const QString path = Path(QStringLiteral("encoded.xml"));
        QVERIFY(WriteFile(path, content));
        XmlFiler filer(false);
        QVERIFY(filer.Open(path));
        const QString text = filer.GetText();
        QVERIFY(filer.Save(path));
        const QByteArray written = ReadFile(path).toLower();
        QVERIFY(written.contains("encoding=\"utf-8\"") || written.contains("encoding='utf-8'"));
        XmlFiler again(false);
        QVERIFY(again.Open(path));
        QCOMPARE(again.GetText(), text);
        QCOMPARE(again.GetDocument().toString(4), filer.GetDocument().toString(4));
    }

    void textAfterAnInstructionStaysAsItIsOverSaves()
    {
        // The writer ends an instruction with a line break; text after one inside an element once
        // grew by a line with every save.
        const QString path = Path(QStringLiteral("instruction.xml"));
        QVERIFY(WriteFile(path, "<W><S><?x?>\"n</S><T>a<?y data?>\nb</T></W>"));
        QStringList texts;
        QByteArray previous;
        for (int round = 0; round < 3; ++round)
        {
            XmlFiler filer(false);
            QVERIFY(filer.Open(path));
            QVERIFY(filer.GoToPath(QStringLiteral("S")));
            const QDomNode afterFirst = filer.GetCurrentElement().firstChild().nextSibling();
            texts << afterFirst.nodeValue();
            QVERIFY(filer.Save(path));
            if (round > 0)
                QCOMPARE(ReadFile(path), previous);
            previous = ReadFile(path);
        }
        QCOMPARE(texts, (QStringList{QStringLiteral("\"n"), QStringLiteral("\"n"), QStringLiteral("\"n")}));
    }

    void charactersNoFileMayHoldAreNeverWritten()
    {
        // An instruction's data and an attribute set through the filer with control characters
        // once made a file that could not be read again.
        const QString path = Path(QStringLiteral("control.xml"));
        QVERIFY(WriteFile(path, QByteArray("<?m\x01\x00s?><Root/>", 15)));
        XmlFiler filer(false);
        QVERIFY(filer.Open(path));
        QVERIFY(filer.SetAttribute(QStringLiteral("A"),
                                   QStringLiteral("a") + QChar(0x1) + QStringLiteral("b\tc")));
        QVERIFY(filer.Save(path));
        XmlFiler again(false);
        QVERIFY(again.Open(path));
        QCOMPARE(again.GetAttribute(QStringLiteral("A"), QString()), QStringLiteral("ab\tc"));
        QCOMPARE(again.GetDocument().toString(4), filer.GetDocument().toString(4));
    }

    void instructionDroppedBetweenTwoTextsLeavesOneText()
    {
        // An instruction whose target no file may hold goes; the texts on either side of it were
        // left as two, which a saved file reads back as one.
        const QString path = Path(QStringLiteral("droppedinstruction.xml"));
        QVERIFY(WriteFile(
            path, QByteArray("<Root>a<?m\x01\x00s?>b<?n\x01?><?o\x01?>c<![CDATA[d]]><?p\x01?>e</Root>", 56)));
        XmlFiler filer(false);
        QVERIFY(filer.Open(path));
        const QDomNode first = filer.GetCurrentElement().firstChild();
        QCOMPARE(first.nodeType(), QDomNode::TextNode);
        QCOMPARE(first.nodeValue(), QStringLiteral("abc"));
        // A character data section stays a section of its own.
        QCOMPARE(first.nextSibling().nodeType(), QDomNode::CDATASectionNode);
        QCOMPARE(first.nextSibling().nextSibling().nodeValue(), QStringLiteral("e"));
        QVERIFY(first.nextSibling().nextSibling().nextSibling().isNull());
        QCOMPARE(filer.GetText(), QStringLiteral("abc"));
        QVERIFY(filer.Save(path));
        XmlFiler again(false);
        QVERIFY(again.Open(path));
        QCOMPARE(again.GetDocument().toString(4), filer.GetDocument().toString(4));
        QCOMPARE(again.GetText(), QStringLiteral("abc"));
    }

    void attributeWhoseNameNoFileMayHoldIsDropped()
    {
        // The reader takes an attribute name running into NUL and control characters; written
        // back as it was, the file could not be read again and the next setting was lost.
        const QString path = Path(QStringLiteral("attributename.xml"));
        QVERIFY(
            WriteFile(path, QByteArray("<Root><W Id=\"1\" LastPage\x00\x01=\"x\" Kept=\"y\"/></Root>", 48)));
        XmlFiler filer(false);
        QVERIFY(filer.Open(path));
        QVERIFY(filer.GoToPath(QStringLiteral("W")));
        QCOMPARE(filer.GetCurrentElement().attributes().count(), 2);
        QCOMPARE(filer.GetAttribute(QStringLiteral("Kept"), QString()), QStringLiteral("y"));
        QVERIFY(filer.Save(path));
        XmlFiler again(false);
        QVERIFY(again.Open(path));
        QCOMPARE(again.GetDocument().toString(4), filer.GetDocument().toString(4));
    }

    void instructionWithAnOddTargetSurvivesSaves()
    {
        // An instruction whose target runs into a character no name may hold was read, then
        // written in a form that could not be read again.
        const QString path = Path(QStringLiteral("oddtarget.xml"));
        QVERIFY(WriteFile(path, "<Root><S>text<?pi`x?></S></Root>"));
        XmlFiler filer(false);
        QVERIFY(filer.Open(path));
        QVERIFY(filer.Save(path));
        QVERIFY(!ReadFile(path).contains("pi`x"));
        XmlFiler again(false);
        QVERIFY(again.Open(path));
        QCOMPARE(again.GetDocument().toString(4), filer.GetDocument().toString(4));
    }

    void halfSurrogatePairsAreDroppedLikeOtherNonXmlCharacters()
    {
        // UTF-7 decodes "+bd5f649544683f18f25fed9cbbcb" into a string ending in half a surrogate
        // pair; written as UTF-8 it became a replacement character, and the file read back
        // differently from the document that was saved.
        const QString path = Path(QStringLiteral("utf7surrogate.xml"));
        QVERIFY(WriteFile(path, "<?xml version=\"1.0\" encoding=\"utf-7\"?>\n"
                                "<Root><E id=\"973+bd5f649544683f18f25fed9cbbcb\">x</E></Root>\n"));
        XmlFiler filer(false);
        QVERIFY(filer.Open(path));
        QVERIFY(filer.GoToPath(QStringLiteral("E")));
        const QString id = filer.GetAttribute(QStringLiteral("id"), QString());
        QVERIFY(id.startsWith(QStringLiteral("973")));
        QVERIFY(!HoldsNonXmlCharacter(id));
        QVERIFY(filer.Save(path));
        XmlFiler again(false);
        QVERIFY(again.Open(path));
        QCOMPARE(again.GetDocument().toString(4), filer.GetDocument().toString(4));
    }

    void nonXmlCharacters_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("kept");
        const QChar high(0xD83D);
        const QChar low(0xDE00);
        QTest::newRow("plain") << QStringLiteral("a\tb\nc") << QStringLiteral("a\tb\nc");
        QTest::newRow("control") << (QStringLiteral("a") + QChar(0x1) + QStringLiteral("b"))
                                 << QStringLiteral("ab");
        QTest::newRow("fffe ffff") << (QStringLiteral("a") + QChar(0xFFFE) + QChar(0xFFFF))
                                   << QStringLiteral("a");
        QTest::newRow("pair kept") << (QString(high) + low) << (QString(high) + low);
        QTest::newRow("lone high at end") << (QStringLiteral("a") + high) << QStringLiteral("a");
        QTest::newRow("lone low at start") << (QString(low) + QStringLiteral("a")) << QStringLiteral("a");
        QTest::newRow("high high low") << (QString(high) + high + low) << (QString(high) + low);
        QTest::newRow("high low low") << (QString(high) + low + low) << (QString(high) + low);
    }

    void nonXmlCharacters()
    {
        QFETCH(QString, text);
        QFETCH(QString, kept);
        QCOMPARE(HoldsNonXmlCharacter(text), text != kept);
        QString cleaned = text;
        QCOMPARE(RemoveNonXmlCharacters(cleaned), text != kept);
        QCOMPARE(cleaned, kept);
    }

    void saveRemovesWhatKilledSavesLeftBehind()
    {
        // A save killed between naming its new file and renaming it leaves that file behind.
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString path = dir.filePath(QStringLiteral("kept.xml"));
        const QStringList names{QStringLiteral("kept.xml.Ab3xYz"), QStringLiteral("kept.xml.fresh1"),
                                QStringLiteral("kept.xml.longer7"), QStringLiteral("other.xml.Ab3xYz"),
                                QStringLiteral("kept.xml.ab-xyz")};
        for (const QString& name : names)
            QVERIFY(WriteFile(dir.filePath(name), "<Half"));
        const QDateTime old = QDateTime::currentDateTimeUtc().addSecs(-60);
        for (const QString& name : {names.at(0), names.at(2), names.at(3), names.at(4)})
        {
            QFile file(dir.filePath(name));
            QVERIFY(file.open(QIODevice::ReadWrite));
            QVERIFY(file.setFileTime(old, QFileDevice::FileModificationTime));
        }
        XmlFiler filer(false);
        filer.Create(QStringLiteral("Root"));
        QVERIFY(filer.Save(path));
        QStringList left = QDir(dir.path()).entryList(QDir::Files | QDir::Hidden);
        left.sort();
        // Only the stale one of this file's own pattern goes; one still being written stays.
        QCOMPARE(left, (QStringList{QStringLiteral("kept.xml"), QStringLiteral("kept.xml.ab-xyz"),
                                    QStringLiteral("kept.xml.fresh1"), QStringLiteral("kept.xml.longer7"),
                                    QStringLiteral("other.xml.Ab3xYz")}));
    }

    void saveWithoutDocumentFailsAndCreatesNothing()
    {
        XmlFiler filer;
        QVERIFY(!filer.Save(Path(QStringLiteral("never.xml"))));
        QVERIFY(!QFile::exists(Path(QStringLiteral("never.xml"))));
        filer.EnsureXmlDeclaration(); // a declaration alone is still no document element
        QVERIFY(!filer.Save(Path(QStringLiteral("never.xml"))));
        QVERIFY(!QFile::exists(Path(QStringLiteral("never.xml"))));
    }

    void saveIndentsByFourAndReadsBack()
    {
        XmlFiler filer;
        filer.Create(QStringLiteral("R"));
        QVERIFY(filer.GoToOrCreatePath(QStringLiteral("A/B"), true, false));
        filer.SetAttribute(QStringLiteral("X"), QStringLiteral("a \"quoted\" <value> & more"));
        QVERIFY(filer.Save(Path(QStringLiteral("saved.xml"))));
        QCOMPARE(ReadFile(Path(QStringLiteral("saved.xml"))),
                 QByteArray("<R>\n    <A>\n        <B X=\"a &quot;quoted&quot; &lt;value> &amp; more\"/>\n   "
                            " </A>\n</R>\n"));
        XmlFiler again;
        QVERIFY(again.Open(Path(QStringLiteral("saved.xml"))));
        QVERIFY(again.GoToPath(QStringLiteral("/R/A/B")));
        QCOMPARE(again.GetAttribute(QStringLiteral("X"), QString()),
                 QStringLiteral("a \"quoted\" <value> & more"));
    }

    void saveIntoMissingFolderFails()
    {
        XmlFiler filer;
        filer.Create(QStringLiteral("R"));
        QVERIFY(!filer.Save(Path(QStringLiteral("no/such/folder/x.xml"))));
        QVERIFY(!QFile::exists(Path(QStringLiteral("no"))));
    }

    void saveBelowAFileFails()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("plain")), "x"));
        XmlFiler filer;
        filer.Create(QStringLiteral("R"));
        QVERIFY(!filer.Save(Path(QStringLiteral("plain/x.xml"))));
        QCOMPARE(ReadFile(Path(QStringLiteral("plain"))), QByteArray("x"));
    }

    void saveOverReadOnlyFileFailsAndKeepsIt()
    {
        const QString path = Path(QStringLiteral("readonly.xml"));
        QVERIFY(WriteFile(path, "<Old/>\n"));
        QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::ReadGroup);
        XmlFiler filer;
        filer.Create(QStringLiteral("New"));
        const bool saved = filer.Save(path);
        QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        if (::geteuid() == 0)
            QSKIP("root may write every file");
        QVERIFY(!saved);
        QCOMPARE(ReadFile(path), QByteArray("<Old/>\n"));
    }

    void saveReplacesExistingFile()
    {
        const QString path = Path(QStringLiteral("replace.xml"));
        QVERIFY(WriteFile(path, QByteArray(100000, 'x')));
        XmlFiler filer;
        filer.Create(QStringLiteral("New"));
        QVERIFY(filer.Save(path));
        QCOMPARE(ReadFile(path), QByteArray("<New/>\n"));
    }

    void pushAndPopRestorePositions()
    {
        XmlFiler filer;
        QVERIFY(OpenTree(filer));
        filer.PushPosition();
        QVERIFY(filer.GoToPath(QStringLiteral("A")));
        filer.PushPosition();
        QVERIFY(filer.GoToPath(QStringLiteral("B")));
        filer.PopPosition();
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root/A"));
        filer.PopPosition();
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root"));
        filer.PopPosition(); // an empty stack leaves the cursor alone
        QCOMPARE(filer.GetCurrentPath(), QStringLiteral("/Root"));
    }

    void hugeAttributeIsRead()
    {
        const QByteArray value(10 * 1024 * 1024, 'v');
        QVERIFY(WriteFile(Path(QStringLiteral("huge.xml")), "<R V=\"" + value + "\"/>"));
        XmlFiler filer;
        QVERIFY(filer.Open(Path(QStringLiteral("huge.xml"))));
        QCOMPARE(filer.GetAttribute(QStringLiteral("V"), QString()).size(), value.size());
    }

    void untranslatedFilerReturnsTextsAsWritten()
    {
        XmlFiler filer(false);
        filer.Create(QStringLiteral("R"));
        filer.SetAttribute(QStringLiteral("Name"), QStringLiteral("tr(Name)"));
        QCOMPARE(filer.GetAttribute(QStringLiteral("Name"), QString()), QStringLiteral("tr(Name)"));
        XmlFiler withoutCatalogue(true);
        withoutCatalogue.Create(QStringLiteral("R"));
        withoutCatalogue.SetAttribute(QStringLiteral("Name"), QStringLiteral("tr(Name)"));
        QCOMPARE(withoutCatalogue.GetAttribute(QStringLiteral("Name"), QString()),
                 QStringLiteral("tr(Name)"));
    }

    // A pipe where the machine settings file belongs would block start-up for ever.
    void fifoInPlaceOfTheMachineSettingsIsNotRead()
    {
        const QString child = QCoreApplication::applicationDirPath() + QStringLiteral("/deepxml_child");
        QVERIFY(QFile::exists(child));
        QTemporaryDir home;
        QVERIFY(home.isValid());
        QVERIFY(QDir().mkpath(home.filePath(QStringLiteral("config/Velmora/Workflow"))));
        QVERIFY(
            ::mkfifo(QFile::encodeName(home.filePath(QStringLiteral("config/Velmora/Workflow/2015.0.conf")))
                         .constData(),
                     0600) == 0);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_CONFIG_DIRS"), home.filePath(QStringLiteral("config")));
        environment.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
        environment.insert(QStringLiteral("XDG_CACHE_HOME"), home.filePath(QStringLiteral("cache")));
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(child, {QStringLiteral("locate")});
        const bool finished = process.waitForFinished(20000);
        if (!finished)
        {
            process.kill();
            process.waitForFinished(10000);
        }
        QVERIFY2(finished, "reading the machine settings blocked");
        QCOMPARE(process.exitCode(), 0);
        // Nothing was read: the catalogue is looked for at the bare file name.
        QCOMPARE(process.readAllStandardOutput().trimmed(), QByteArray("/Products.xml"));
    }

    // Files nested far deeper than any real one are unreadable to every reader of the library,
    // and reading them neither overflows the stack nor crashes at exit.
    void deeplyNestedFilesAreUnreadable_data()
    {
        QTest::addColumn<int>("depth");
        QTest::newRow("10000") << 10000;
        QTest::newRow("100000") << 100000;
    }
    void deeplyNestedFilesAreUnreadable()
    {
        QFETCH(int, depth);
        const QString child = QCoreApplication::applicationDirPath() + QStringLiteral("/deepxml_child");
        QVERIFY(QFile::exists(child));
        QTemporaryDir home;
        QVERIFY(home.isValid());
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
        environment.insert(QStringLiteral("XDG_CONFIG_DIRS"), home.filePath(QStringLiteral("config")));
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), home.filePath(QStringLiteral("runtime")));
        environment.insert(QStringLiteral("XDG_DATA_DIRS"), home.filePath(QStringLiteral("datadirs")));
        environment.insert(QStringLiteral("XDG_CACHE_HOME"), home.filePath(QStringLiteral("cache")));
        QDir().mkpath(home.filePath(QStringLiteral("runtime")));
        QFile::setPermissions(home.filePath(QStringLiteral("runtime")),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        const auto run = [&](const QStringList& arguments) -> QByteArray {
            QProcess process;
            process.setProcessEnvironment(environment);
            process.start(child, arguments);
            if (!process.waitForFinished(100000) || process.exitStatus() != QProcess::NormalExit ||
                process.exitCode() != 0)
                return QByteArray("crashed or failed: ") + process.readAllStandardError().right(400);
            return process.readAllStandardOutput().trimmed();
        };
        const QByteArray open = QByteArray("<a>").repeated(depth);
        const QByteArray close = QByteArray("</a>").repeated(depth);

        const QString workflows = home.filePath(QStringLiteral("workflows"));
        QVERIFY(WriteFile(workflows + QStringLiteral("/deep.workflow"),
                          "<Workflows><Workflow Id=\"Deep\" IsTemplate=\"False\"><Settings>" + open + close +
                              "</Settings></Workflow></Workflows>"));
        QVERIFY(WriteFile(
            workflows + QStringLiteral("/fine.workflow"),
            "<Workflows><Workflow Id=\"Fine\"><Settings><a><b/></a></Settings></Workflow></Workflows>"));
        QCOMPARE(run({QStringLiteral("filer"), workflows + QStringLiteral("/deep.workflow")}),
                 QByteArray("refused"));
        QCOMPARE(run({QStringLiteral("filer"), workflows + QStringLiteral("/fine.workflow")}),
                 QByteArray("opened"));
        QCOMPARE(run({QStringLiteral("workflows"), workflows}), QByteArray("Fine"));

        const QString settings =
            home.filePath(QStringLiteral("data/Velmora/WorkflowSettings/WorkflowSettings.xml"));
        const QByteArray deepSettings = "<WorkflowSettings><Workflows><Workflow Id=\"\" Key=\"old\">" + open +
                                        close + "</Workflow></Workflows></WorkflowSettings>";
        QVERIFY(WriteFile(settings, deepSettings));
        // Unreadable: the setting reads as empty and the file is never rewritten.
        QCOMPARE(run({QStringLiteral("settings")}), QByteArray("0"));
        QCOMPARE(ReadFile(settings), deepSettings);

        const QString xliff = home.filePath(QStringLiteral("deep.xlf"));
        QVERIFY(WriteFile(
            xliff, "<xliff><file original=\"x.workflow\"><body><trans-unit id=\"1\"><target>t</target>" +
                       open + close + "</trans-unit></body></file></xliff>"));
        QCOMPARE(run({QStringLiteral("xliff"), xliff}), QByteArray("missing"));

        const QString products = home.filePath(QStringLiteral("Products.xml"));
        QVERIFY(WriteFile(products, "<Products><Product Id=\"p\">" + open + close + "</Product></Products>"));
        QCOMPARE(run({QStringLiteral("products"), products}), QByteArray("refused"));
    }
};

QTEST_GUILESS_MAIN(tst_XmlFiler)
#include "tst_xmlfiler.moc"
