// SPDX-License-Identifier: MIT
// The streaming readers of workflow files and of the per-user settings file must give exactly
// what the whole-document reader gives for the same bytes: the same records field for field
// (the Settings markup character for character), the same verdict on damaged files, the same
// catalogue after a scan, signal for signal. Checked over the sample files shipped with the
// library and over a few hundred generated files (the seed is printed; set VMWF_READER_SEED to
// repeat a run).

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "util/WorkflowFileScanner.h"
#include "util/XlfCatalog.h"
#include "util/XmlStreamReading.h"
#include "workflow/WorkflowFile.h"
#include "workflow/WorkflowImp.h"
#include "workflow/WorkflowSettings.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"

#include <QDirIterator>
#include <QRandomGenerator>
#include <QtTest>

#include <cstdio>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

const QString kLocale = QStringLiteral("en-US");

WorkflowManagerImp* Imp()
{
    return ImpOf(WorkflowManager::GetInstance());
}

QString Shown(const QString& text)
{
    QString shown = text;
    shown.replace(QLatin1Char('\n'), QLatin1String("\\n"));
    shown.replace(QLatin1Char('\r'), QLatin1String("\\r"));
    shown.replace(QLatin1Char('\t'), QLatin1String("\\t"));
    return QLatin1Char('[') + (text.size() > 400 ? shown.left(400) + QLatin1String("...") : shown) +
           QLatin1Char(']');
}

// The first difference between two texts, with a little context.
QString TextDifference(const QString& what, const QString& a, const QString& b)
{
    if (a == b)
        return QString();
    qsizetype at = 0;
    while (at < a.size() && at < b.size() && a[at] == b[at])
        ++at;
    const qsizetype from = qMax<qsizetype>(0, at - 40);
    return QStringLiteral("%1 differs at %2: streamed %3, document %4")
        .arg(what, QString::number(at), Shown(a.mid(from, 120)), Shown(b.mid(from, 120)));
}

QString DataDifference(const WorkflowFileData& a, const WorkflowFileData& b)
{
    if (a.hasXlfFile != b.hasXlfFile || a.xlfFile != b.xlfFile)
        return QStringLiteral("XlfFile %1 / %2").arg(Shown(a.xlfFile), Shown(b.xlfFile));
    if (a.elements.size() != b.elements.size())
        return QStringLiteral("%1 elements streamed, %2 in the document")
            .arg(QString::number(a.elements.size()), QString::number(b.elements.size()));
    for (qsizetype i = 0; i < a.elements.size(); ++i)
    {
        const WorkflowElementData& x = a.elements.at(i);
        const WorkflowElementData& y = b.elements.at(i);
        const QString where = QStringLiteral("element %1 ").arg(i);
        if (x.tag != y.tag)
            return where + TextDifference(QStringLiteral("tag"), x.tag, y.tag);
        for (int k = 0; k < WorkflowAttributeCount; ++k)
        {
            const auto attribute = static_cast<WorkflowAttribute>(k);
            if (x.Has(attribute) != y.Has(attribute) || x.Value(attribute) != y.Value(attribute))
                return where +
                       TextDifference(WorkflowAttributeName(attribute), x.Value(attribute),
                                      y.Value(attribute)) +
                       QStringLiteral(" present %1/%2").arg(x.Has(attribute)).arg(y.Has(attribute));
        }
        if (x.hasIntroduction != y.hasIntroduction || x.introduction.isNull() != y.introduction.isNull())
            return where + QStringLiteral("Introduction presence");
        if (x.introduction != y.introduction)
            return where + TextDifference(QStringLiteral("Introduction"), x.introduction, y.introduction);
        if (x.hasSettings != y.hasSettings)
            return where + QStringLiteral("Settings presence");
        if (x.settings != y.settings)
            return where +
                   TextDifference(QStringLiteral("Settings"), x.settings.ToString(), y.settings.ToString());
    }
    return QString();
}

// DataDifference, and null texts told from empty ones as well.
QString ExactDataDifference(const WorkflowFileData& a, const WorkflowFileData& b)
{
    const QString difference = DataDifference(a, b);
    if (!difference.isEmpty())
        return difference;
    if (a.xlfFile.isNull() != b.xlfFile.isNull())
        return QStringLiteral("XlfFile null %1/%2").arg(a.xlfFile.isNull()).arg(b.xlfFile.isNull());
    for (qsizetype i = 0; i < a.elements.size(); ++i)
    {
        const WorkflowElementData& x = a.elements.at(i);
        const WorkflowElementData& y = b.elements.at(i);
        QList<std::pair<QString, std::pair<const QString*, const QString*>>> texts = {
            {QStringLiteral("tag"), {&x.tag, &y.tag}},
            {QStringLiteral("Introduction"), {&x.introduction, &y.introduction}}};
        if (x.settings.isNull() != y.settings.isNull())
            return QStringLiteral("element %1 Settings null %2/%3")
                .arg(i)
                .arg(x.settings.isNull())
                .arg(y.settings.isNull());
        for (int k = 0; k < WorkflowAttributeCount; ++k)
            texts.append(
                {WorkflowAttributeName(static_cast<WorkflowAttribute>(k)), {&x.values[k], &y.values[k]}});
        for (const auto& text : std::as_const(texts))
        {
            if (text.second.first->isNull() != text.second.second->isNull())
                return QStringLiteral("element %1 %2 null %3/%4")
                    .arg(i)
                    .arg(text.first)
                    .arg(text.second.first->isNull())
                    .arg(text.second.second->isNull());
        }
    }
    return QString();
}

QString DateText(const QDateTime& date)
{
    return date.isValid() ? date.toString(Qt::ISODateWithMs) + QLatin1Char('/') +
                                QString::number(date.toMSecsSinceEpoch())
                          : QStringLiteral("invalid");
}

// Every field a read sets, as name and text.
QList<std::pair<QString, QString>> FieldTexts(const WorkflowFields& m)
{
    const auto flag = [](bool value) { return value ? QStringLiteral("true") : QStringLiteral("false"); };
    return {
        {QStringLiteral("TemplateId"), m.TemplateId},
        {QStringLiteral("IsTemplate"), flag(m.IsTemplate)},
        {QStringLiteral("Id"), m.Id},
        {QStringLiteral("HelpId"), m.HelpId},
        {QStringLiteral("Name"), m.Name},
        {QStringLiteral("Description"), m.Description},
        {QStringLiteral("TemplateImage"), m.TemplateImage},
        {QStringLiteral("ModifiedImage"), m.ModifiedImage},
        {QStringLiteral("Tooltip"), m.Tooltip},
        {QStringLiteral("Keywords"), m.Keywords},
        {QStringLiteral("Tag"), m.Tag},
        {QStringLiteral("UIFile"), m.UIFile},
        {QStringLiteral("Settings"), m.Settings.ToString()},
        {QStringLiteral("Settings in bytes"), flag(m.Settings.IsNarrow())},
        {QStringLiteral("SourceFile"), m.SourceFile},
        {QStringLiteral("Plugin"), m.Plugin},
        {QStringLiteral("PrimaryProduct"), m.PrimaryProduct},
        {QStringLiteral("RequiredProducts"), m.RequiredProducts},
        {QStringLiteral("TargetProduct"), m.TargetProduct},
        {QStringLiteral("RequiredProductsDisplayText"), m.RequiredProductsDisplayText},
        {QStringLiteral("CreatedDate"), DateText(m.CreatedDate)},
        {QStringLiteral("LastModifiedDate"), DateText(m.LastModifiedDate)},
        {QStringLiteral("Introduction"), m.Introduction},
        {QStringLiteral("IsReadOnly"), flag(m.IsReadOnly)},
        {QStringLiteral("XlfFile"), m.XlfFile},
        {QStringLiteral("ShowIntroductionOnExecute"), flag(m.ShowIntroductionOnExecute)},
        {QStringLiteral("UIStateChanged"), flag(m.UIStateChanged)},
        {QStringLiteral("IsModified"), flag(m.IsModified)},
        {QStringLiteral("ProductsInherited"), flag(m.ProductsInherited)},
        {QStringLiteral("TemplateImages"), QString::number(m.TemplateImages.size())},
        {QStringLiteral("ModifiedImages"), QString::number(m.ModifiedImages.size())},
    };
}

QString FieldsDifference(const WorkflowFields& a, const WorkflowFields& b)
{
    const auto x = FieldTexts(a);
    const auto y = FieldTexts(b);
    for (qsizetype i = 0; i < x.size(); ++i)
    {
        const QString difference = TextDifference(x.at(i).first, x.at(i).second, y.at(i).second);
        if (!difference.isEmpty())
            return difference;
    }
    return QString();
}

// A record that leaves no trace in the settings file when it goes.
struct QuietRecord
{
    Workflow workflow;
    WorkflowFields& Fields() { return ImpOf(workflow)->Fields(); }
    ~QuietRecord() { Fields().IsTemplate = false; }
};

// Random, mostly well-formed workflow files that use every construct a file may hold.
class Generator
{
public:
    explicit Generator(quint32 seed) : m_random(seed) {}

    int Pick(int count) { return static_cast<int>(m_random.bounded(count)); }
    bool Chance(int percent) { return Pick(100) < percent; }
    template <typename T> const T& OneOf(const QList<T>& list)
    {
        return list.at(Pick(static_cast<int>(list.size())));
    }

    // Translatable texts; the catalogue written beside the files translates some of them.
    static QList<QByteArray> TranslatableTexts()
    {
        return {"tr(Alpha)",        "  tr( Beta )  ", "tr(Gamma &amp; Delta)",
                "tr(Untranslated)", "tr(Id_T0)",      "tr(Id_T1)"};
    }

    QByteArray Blank()
    {
        static const QList<QByteArray> blanks = {"", " ", "\n", "\n    ", "\t", "\r\n  ", "  \n\n  "};
        return OneOf(blanks);
    }

    // Character data as it is written in a file: entities, character references and all.
    QByteArray TextPiece()
    {
        static const QList<QByteArray> pieces = {"plain",
                                                 "two words",
                                                 "&amp;",
                                                 "&lt;",
                                                 "&gt;",
                                                 "&quot;",
                                                 "&apos;",
                                                 "'",
                                                 "\"",
                                                 ">",
                                                 "]]&gt;",
                                                 "]]>",
                                                 "&#x41;",
                                                 "&#65;",
                                                 "&#9;",
                                                 "&#10;",
                                                 "&#13;",
                                                 "&#32;",
                                                 "&#160;",
                                                 "&#xA0;",
                                                 "&#x85;",
                                                 "&#x2003;",
                                                 "&#x2028;",
                                                 "&#x3000;",
                                                 "&#x1F600;",
                                                 "\xC3\xA9t\xC3\xA9",
                                                 "\xE2\x82\xAC",
                                                 " ",
                                                 "  ",
                                                 "\t",
                                                 "\n",
                                                 "\r\n",
                                                 "\r",
                                                 "tr(Alpha)",
                                                 "tr(Untranslated)",
                                                 "a]b",
                                                 "]]",
                                                 "x]]"};
        return OneOf(pieces);
    }

    QByteArray Text(int pieces)
    {
        QByteArray text;
        for (int i = 0; i < pieces; ++i)
        {
            // A bare "]]>" is not allowed in content; it stays for attribute values.
            const QByteArray piece = TextPiece();
            text += piece == "]]>" ? QByteArray("]]&gt;") : piece;
        }
        return text;
    }

    QByteArray AttributeValue(char quote)
    {
        QByteArray value;
        const int pieces = Pick(4);
        for (int i = 0; i < pieces; ++i)
        {
            QByteArray piece = TextPiece();
            if (piece.contains('<'))
                continue;
            if (piece == "\"" || piece == "'")
                piece = quote == '"' ? "'" : "\"";
            value += piece;
        }
        return value;
    }

    QByteArray Attribute(const QByteArray& name, const QByteArray& value, char quote)
    {
        return " " + name + Blank().replace("\r", "") + "=" + QByteArray(1, quote) + value +
               QByteArray(1, quote);
    }

    // Attributes drawn from a small pool of names, so that element shapes repeat and differ.
    QByteArray Attributes(int count)
    {
        static const QList<QByteArray> names = {"a",       "b",        "Name",   "Key",         "Value",
                                                "Order",   "z",        "id",     "Kind",        "p:q",
                                                "xmlns:p", "xml:lang", "Action", "Long_Name-1", "x.y"};
        QByteArray result;
        QList<QByteArray> used;
        for (int i = 0; i < count; ++i)
        {
            const QByteArray& name = OneOf(names);
            if (used.contains(name))
                continue;
            used.append(name);
            const char quote = Chance(70) ? '"' : '\'';
            result += Attribute(name, AttributeValue(quote), quote);
        }
        return result;
    }

    QByteArray Comment()
    {
        static const QList<QByteArray> comments = {"",  " comment ",     "-a-b-",
                                                   "x", " <tag> &amp; ", "\n multi\n line\n"};
        QByteArray text = OneOf(comments);
        if (text.startsWith('-'))
            text = " " + text;
        if (text.endsWith('-'))
            text += " ";
        return "<!--" + text + "-->";
    }

    QByteArray Instruction()
    {
        static const QList<QByteArray> instructions = {"<?pi data?>", "<?pi?>", "<?other  spaced  data ?>",
                                                       "<?x-y a=\"1\"?>"};
        return OneOf(instructions);
    }

    QByteArray CharacterData()
    {
        static const QList<QByteArray> sections = {"<![CDATA[]]>",
                                                   "<![CDATA[ ]]>",
                                                   "<![CDATA[x < y & z]]>",
                                                   "<![CDATA[tr(Alpha)]]>",
                                                   "<![CDATA[]]]]><![CDATA[>]]>",
                                                   "<![CDATA[\n  two\n  lines\n]]>"};
        return OneOf(sections);
    }

    QByteArray ElementName()
    {
        static const QList<QByteArray> names = {"Step",     "Argument",     "a",        "B",     "p:Elem",
                                                "Settings", "Introduction", "Workflow", "x-y.z", "_u"};
        return OneOf(names);
    }

    // Mixed content: elements, texts, sections, comments, instructions and blanks.
    QByteArray Content(int depth, int budget)
    {
        QByteArray content;
        const int count = Pick(budget + 1);
        for (int i = 0; i < count; ++i)
        {
            switch (Pick(depth > 0 ? 8 : 7))
            {
            case 0:
                content += Blank();
                break;
            case 1:
                content += Text(1 + Pick(3));
                break;
            case 2:
                content += CharacterData();
                break;
            case 3:
                content += Comment();
                break;
            case 4:
                content += Instruction();
                break;
            case 5:
            case 6:
            {
                const QByteArray name = ElementName();
                const QByteArray attributes = Attributes(Pick(6));
                if (Chance(30))
                    content += "<" + name + attributes + Blank().replace("\r", "") + "/>";
                else if (Chance(20))
                    content += "<" + name + attributes + "></" + name + ">";
                else
                    content += "<" + name + attributes + ">" +
                               Content(depth > 0 ? depth - 1 : 0, budget / 2 + 1) + "</" + name + ">";
                break;
            }
            default:
                content += "<Deep>" + Content(depth - 1, budget) + "</Deep>";
                break;
            }
        }
        return content;
    }

    QByteArray KnownAttributes()
    {
        static const QList<QByteArray> names = {"Plugin",
                                                "IsTemplate",
                                                "IsReadOnly",
                                                "TemplateId",
                                                "Id",
                                                "HelpId",
                                                "Name",
                                                "Description",
                                                "Tooltip",
                                                "Tag",
                                                "Keywords",
                                                "UIFile",
                                                "PrimaryProduct",
                                                "TargetProduct",
                                                "RequiredProducts",
                                                "RequiredProductsDisplayText",
                                                "CreatedDate",
                                                "LastModifiedDate",
                                                "TemplateImage",
                                                "ModifiedImage",
                                                "Unknown",
                                                "p:Id",
                                                "id"};
        static const QList<QByteArray> flags = {
            "True", "False", "TRUE", "false", "1", "0", "2", "yes", "", " 1", "18446744073709551616"};
        static const QList<QByteArray> dates = {"2015-10-01T09:00:00",
                                                "2020-02-29T23:59:59",
                                                "2015-10-01T09:00:00Z",
                                                "2015-10-01T09:00:00+02:00",
                                                "2015-10-01",
                                                "garbage",
                                                "",
                                                "2021-03-28T02:30:00",
                                                "1969-12-31T23:59:59"};
        static const QList<QByteArray> ids = {"Id_T0", "Id_T1", "id_t0",     "Id_U0",
                                              "Id_U1", "",      "tr(Id_T0)", "Id_T2"};
        QByteArray result;
        QList<QByteArray> used;
        const int count = Pick(12);
        for (int i = 0; i < count; ++i)
        {
            const QByteArray& name = OneOf(names);
            if (used.contains(name))
                continue;
            used.append(name);
            const char quote = Chance(80) ? '"' : '\'';
            QByteArray value;
            if (name.startsWith("Is"))
                value = OneOf(flags);
            else if (name.endsWith("Date"))
                value = OneOf(dates);
            else if (name == "Id")
                value = OneOf(ids);
            else if (name == "TemplateId")
                value = Chance(15) ? QByteArray("Id_Missing") : OneOf(ids);
            else if (name == "TargetProduct")
                value = Chance(50) ? "alpha:2016" : "alpha";
            else if (Chance(40))
                value = OneOf(TranslatableTexts());
            else
                value = AttributeValue(quote);
            result += Attribute(name, value, quote);
        }
        return result;
    }

    QByteArray WorkflowChildren()
    {
        QByteArray children;
        const int count = Pick(6);
        for (int i = 0; i < count; ++i)
        {
            children += Blank();
            switch (Pick(6))
            {
            case 0:
            case 1:
                children += "<Settings" + Attributes(Pick(2)) + ">" + Content(3, 8) + "</Settings>";
                break;
            case 2:
            case 3:
            {
                QByteArray introduction;
                switch (Pick(5))
                {
                case 0:
                    introduction = OneOf(TranslatableTexts());
                    break;
                case 1:
                    introduction = CharacterData();
                    break;
                default:
                    introduction = Content(1, 3);
                    break;
                }
                children += "<Introduction>" + introduction + "</Introduction>";
                break;
            }
            case 4:
                children += Comment();
                break;
            default:
                children += "<Unknown" + Attributes(Pick(3)) + ">" + Content(1, 3) + "</Unknown>";
                break;
            }
        }
        return children + Blank();
    }

    QByteArray Document()
    {
        QByteArray document;
        if (Chance(10))
            document += "\xEF\xBB\xBF";
        if (Chance(70))
            document += Chance(50) ? "<?xml version=\"1.0\"?>" : "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
        document += Blank().replace("\r", "");
        if (Chance(10))
            document += Comment() + "\n";
        const bool withEntities = Chance(5);
        if (withEntities)
            document += "<!DOCTYPE Workflows [<!ENTITY e \"entity text\"><!ENTITY m \"a<B x='1'/>b\">]>\n";
        const QByteArray root = Chance(90) ? QByteArray("Workflows") : QByteArray("Other");
        document += "<" + root;
        if (Chance(70))
            document += Attribute("XlfFile", Chance(80) ? QByteArray("Texts") : QByteArray("tr(Alpha)"), '"');
        document += Attributes(Pick(2)) + ">";
        const int count = Pick(5);
        for (int i = 0; i < count; ++i)
        {
            document += Blank();
            if (Chance(10))
                document += Comment();
            const QByteArray tag =
                Chance(85) ? QByteArray("Workflow") : OneOf(QList<QByteArray>{"Other", "p:Workflow"});
            QByteArray children = WorkflowChildren();
            if (withEntities)
                children += "<Settings>&e;<A>&m;</A></Settings>";
            document += "<" + tag + KnownAttributes() + ">" + children + "</" + tag + ">";
        }
        document += Blank() + "</" + root + ">" + Blank();
        if (Chance(5))
            document += Comment();
        return Damaged(document);
    }

    // Some files are cut short, broken or nested beyond what the readers accept.
    QByteArray Damaged(QByteArray document)
    {
        switch (Pick(20))
        {
        case 0:
            document.truncate(Pick(static_cast<int>(document.size())));
            break;
        case 1:
            document[Pick(static_cast<int>(document.size()))] = '<';
            break;
        case 2:
            document.replace("<Settings>", "<Settings a=\"1\" a=\"2\">");
            break;
        case 3:
            document += "<Trailing/>";
            break;
        case 4:
        {
            QByteArray deep;
            const int levels = Chance(50) ? 511 : 600;
            for (int i = 0; i < levels; ++i)
                deep += "<D>";
            for (int i = 0; i < levels; ++i)
                deep += "</D>";
            const qsizetype at = document.indexOf("<Settings>");
            if (at >= 0)
                document.insert(at + 10, deep);
            break;
        }
        case 5:
            document.replace("&amp;", "&undeclared;");
            break;
        default:
            break;
        }
        return document;
    }

    QByteArray SettingsDocument()
    {
        QByteArray document = "<?xml version=\"1.0\"?>\n";
        const bool otherRoot = Chance(10);
        document += otherRoot ? "<Top><WorkflowSettings>" : "<WorkflowSettings>";
        const int lists = 1 + (Chance(20) ? 1 : 0);
        for (int list = 0; list < lists; ++list)
        {
            document += Blank() + (Chance(10) ? QByteArray("<Before/>") : QByteArray()) + "<Workflows>";
            const int count = Pick(30);
            for (int i = 0; i < count; ++i)
            {
                const QByteArray tag = Chance(90) ? QByteArray("Workflow") : QByteArray("Other");
                QByteArray attributes;
                if (Chance(95))
                    attributes += Attribute(
                        "Id", OneOf(QList<QByteArray>{"Id_0", "Id_1", "id_1", "Id_2", "", "Id_&amp;"}), '"');
                attributes += Attributes(Pick(5));
                if (Chance(50))
                    attributes += Attribute("ShowIntroductionOnExecute",
                                            OneOf(QList<QByteArray>{"True", "false", ""}), '"');
                document += Blank() + "<" + tag + attributes +
                            (Chance(50) ? "/>" : ">" + Content(1, 2) + "</" + tag + ">");
            }
            document += "</Workflows>";
        }
        document += otherRoot ? "</WorkflowSettings></Top>" : "</WorkflowSettings>";
        return Damaged(document);
    }

private:
    QRandomGenerator m_random;
};

quint32 Seed()
{
    static const quint32 seed = [] {
        bool ok = false;
        const quint32 fromEnvironment = qEnvironmentVariable("VMWF_READER_SEED").toUInt(&ok);
        return ok ? fromEnvironment : 20261123u;
    }();
    return seed;
}

} // namespace

class tst_ReaderEquivalence : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    QTemporaryDir m_dir;
    int m_readFiles = 0;
    int m_unreadableFiles = 0;
    int m_documentTypeFiles = 0;
    int m_settingsBodies = 0;
    int m_loads = 0;
    int m_scannedFiles = 0;

    QString Path(const QString& name) const { return m_dir.filePath(name); }

    // The translation catalogue the generated files point at: for every file name, a unit for
    // some of the translatable texts.
    bool WriteCatalogue(const QString& folder, const QStringList& fileNames)
    {
        QByteArray xlf = "<?xml version=\"1.0\"?>\n<xliff version=\"1.2\">\n";
        for (const QString& fileName : fileNames)
        {
            xlf += "<file original=\"" + fileName.toUtf8() + "\"><body>\n";
            int n = 0;
            for (const QByteArray& text : Generator::TranslatableTexts())
            {
                if (text.contains("Untranslated"))
                    continue;
                // The unit id covers the text as the reader sees it, entities expanded.
                QString source = QString::fromUtf8(text);
                source.replace(QLatin1String("&amp;"), QLatin1String("&"));
                xlf += "<trans-unit id=\"" + TranslationUnitId(source).toUtf8() + "\"><target>Translated " +
                       QByteArray::number(n++) + "</target></trans-unit>\n";
            }
            xlf += "</body></file>\n";
        }
        xlf += "</xliff>\n";
        return WriteFile(folder + QLatin1Char('/') + kLocale + QStringLiteral("/Texts.xlf"), xlf);
    }

    // Reads one file every way there is and holds the streaming reads to the document reads.
    void CompareFile(const QString& path)
    {
        QByteArray bytes;
        QVERIFY2(ReadRegularFileBytes(path, bytes), qPrintable(path));

        for (const QString& firstTag : {QString(), QStringLiteral("Workflow")})
        {
            WorkflowFileData streamed;
            WorkflowFileData document;
            const StreamReadResult parsed = ParseWorkflowFile(bytes, firstTag, streamed);
            const StreamReadResult read = ReadWorkflowFileData(path, firstTag, streamed);
            const StreamReadResult reference = ReadWorkflowFileFromDocument(path, firstTag, document);
            QVERIFY2(read != StreamReadResult::NeedsDocument, qPrintable(path));
            QVERIFY2(read == reference, qPrintable(QStringLiteral("%1: streamed %2, document %3")
                                                       .arg(path)
                                                       .arg(int(read))
                                                       .arg(int(reference))));
            if (read != StreamReadResult::Read)
                continue;
            const QString difference = DataDifference(streamed, document);
            QVERIFY2(difference.isEmpty(), qPrintable(path + QStringLiteral(": ") + difference));
            if (firstTag.isEmpty())
            {
                ++m_readFiles;
                if (parsed == StreamReadResult::NeedsDocument)
                    ++m_documentTypeFiles;
                for (const WorkflowElementData& element : std::as_const(streamed.elements))
                    m_settingsBodies += element.settings.isEmpty() ? 0 : 1;
            }
        }

        // The reader for the common shape of a file declines it or reads exactly what the general
        // streaming reader reads, null texts and all.
        for (const QString& firstTag : {QString(), QStringLiteral("Workflow")})
        {
            WorkflowFileData scanned;
            WorkflowFileData general;
            const bool quick = ScanCommonWorkflowFile(bytes, firstTag, scanned);
            const StreamReadResult reference = ParseWorkflowFileWithReader(bytes, firstTag, general);
            if (!quick)
            {
                QVERIFY2(scanned.elements.isEmpty() && !scanned.hasXlfFile, qPrintable(path));
                continue;
            }
            QVERIFY2(reference == StreamReadResult::Read,
                     qPrintable(QStringLiteral("%1: read in the common shape, general reader says %2")
                                    .arg(path)
                                    .arg(int(reference))));
            const QString difference = ExactDataDifference(scanned, general);
            QVERIFY2(difference.isEmpty(),
                     qPrintable(path + QStringLiteral(" (common shape): ") + difference));
            if (firstTag.isEmpty())
                ++m_scannedFiles;
        }

        // Loading by id: every id of the file, in other letter case, none, and one not there.
        WorkflowFileData data;
        const bool readable = ReadWorkflowFileData(path, QString(), data) == StreamReadResult::Read;
        if (!readable)
            ++m_unreadableFiles;
        QStringList ids = {QString(), QStringLiteral("no such id")};
        for (const WorkflowElementData& element : std::as_const(data.elements))
        {
            ids.append(element.Value(AttrId));
            ids.append(element.Value(AttrId).toUpper());
        }
        ids.append(QStringLiteral("Translated 4"));
        for (const QString& id : std::as_const(ids))
        {
            QuietRecord streamed;
            QuietRecord document;
            const bool loaded = LoadWorkflow(*ImpOf(streamed.workflow), path, id);
            const bool reference = LoadWorkflowFromDocument(*ImpOf(document.workflow), path, id);
            QVERIFY2(loaded == reference, qPrintable(QStringLiteral("%1 id %2").arg(path, id)));
            const QString difference = FieldsDifference(streamed.Fields(), document.Fields());
            QVERIFY2(difference.isEmpty(),
                     qPrintable(QStringLiteral("%1 id %2: %3").arg(path, id, difference)));
            m_loads += loaded ? 1 : 0;
        }

        // The same bytes read as a per-user settings file.
        QHash<QString, QHash<QString, QString>> streamedSettings;
        QHash<QString, QHash<QString, QString>> documentSettings;
        const bool settingsRead = ReadWorkflowSettingsFile(path, streamedSettings, false);
        const bool settingsReference = ReadWorkflowSettingsFile(path, documentSettings, true);
        QVERIFY2(settingsRead == settingsReference, qPrintable(path));
        QVERIFY2(streamedSettings == documentSettings, qPrintable(path));
    }

    void ResetCounts()
    {
        m_readFiles = m_unreadableFiles = m_documentTypeFiles = m_settingsBodies = m_loads = m_scannedFiles =
            0;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(m_dir.isValid());
        // Keeps the files of a failed run for a look at them.
        if (qEnvironmentVariableIsSet("VMWF_READER_KEEP"))
        {
            m_dir.setAutoRemove(false);
            std::printf("files kept in %s\n", qPrintable(m_dir.path()));
        }
        QVERIFY(WorkflowManager::Initialize());
        std::printf("seed %u (set VMWF_READER_SEED to repeat another)\n", Seed());
        std::fflush(stdout);
    }

    void cleanupTestCase() { QVERIFY(WorkflowManager::Uninitialize()); }

    // The constructs the document writer treats specially, each checked against what it writes.
    void knownConstructs_data()
    {
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<QString>("expected");
        // An instruction inside the document sends the file to the document reader.
        QTest::addColumn<bool>("streams");
        QTest::newRow("elements") << QByteArray("<A/><B><C/></B>")
                                  << QStringLiteral("    <A/>\n    <B>\n        <C/>\n    </B>\n") << true;
        QTest::newRow("text escapes")
            << QByteArray("<A>x &amp; &lt; &gt; ]]&gt; \" '&#13;</A>")
            << QStringLiteral("    <A>x &amp; &lt; > ]]&gt; \" '&#xd;</A>\n") << true;
        QTest::newRow("attribute escapes")
            << QByteArray("<A v=\"&quot;&lt;&gt;&amp;'&#9;&#10;&#13;]]>\"/>")
            << QStringLiteral("    <A v=\"&quot;&lt;>&amp;'&#x9;&#xa;&#xd;]]&gt;\"/>\n") << true;
        QTest::newRow("blank text dropped") << QByteArray("<A>  </A><B>&#160;</B><C>&#32;x</C>")
                                            << QStringLiteral("    <A/>\n    <B/>\n    <C> x</C>\n") << true;
        QTest::newRow("mixed") << QByteArray("t<A/>u<!--c-->v<?p d?>w")
                               << QStringLiteral("t<A/>u<!--c-->v<?p d?>\nw") << false;
        QTest::newRow("comment and instruction")
            << QByteArray("<!--c--><?p?><A><!--d--></A>")
            << QStringLiteral("    <!--c-->\n<?p ?>\n    <A>\n        <!--d-->\n    </A>\n") << false;
        QTest::newRow("character data")
            << QByteArray("<A><![CDATA[ ]]></A><![CDATA[x]]><B>a<![CDATA[b]]></B>")
            << QStringLiteral("    <A><![CDATA[ ]]></A><![CDATA[x]]><B>a<![CDATA[b]]></B>\n") << true;
        QTest::newRow("prefixes as written")
            << QByteArray("<p:A xmlns:p=\"u\"/>") << QStringLiteral("    <p:A xmlns:p=\"u\"/>\n") << true;
    }

    void knownConstructs()
    {
        QFETCH(QByteArray, settings);
        QFETCH(QString, expected);
        QFETCH(bool, streams);
        const QString path =
            Path(QStringLiteral("known/%1.workflow").arg(QString::fromLatin1(QTest::currentDataTag())));
        QVERIFY(WriteFile(path, WorkflowDocument(WorkflowElement(R"(Id="Known")",
                                                                 "<Settings>" + settings + "</Settings>"))));
        WorkflowFileData streamed;
        QCOMPARE(ParseWorkflowFile(ReadFile(path), QString(), streamed),
                 streams ? StreamReadResult::Read : StreamReadResult::NeedsDocument);
        WorkflowFileData read;
        QCOMPARE(ReadWorkflowFileData(path, QString(), read, {}), StreamReadResult::Read);
        QCOMPARE(read.elements.size(), 1);
        QCOMPARE(read.elements.at(0).settings.ToString(), expected);
        CompareFile(path);
    }

    // Several attributes come out in the order the document writer picks, whatever it is.
    void attributeOrder()
    {
        QByteArray settings;
        for (int i = 0; i < 40; ++i)
            settings +=
                "<E k" + QByteArray::number(i) + "=\"1\" b=\"2\" a=\"3\" Name=\"4\" zz=\"5\" Key=\"6\"/>";
        const QString path = Path(QStringLiteral("order.workflow"));
        QVERIFY(WriteFile(path, WorkflowDocument(WorkflowElement(R"(Id="Order")",
                                                                 "<Settings>" + settings + "</Settings>"))));
        CompareFile(path);
    }

    // The reader for the common shape reads what it may and declines the rest, whole.
    void commonShape_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("scanned");
        const QByteArray body = "<Workflows XlfFile=\"Texts\"><Workflow Id=\"A\" Name=\"tr(Alpha)\">"
                                "<Introduction>Hi</Introduction><Settings><S a=\"1\" b=\"2\"/></Settings>"
                                "</Workflow></Workflows>";
        QTest::newRow("catalogue file")
            << QByteArray(
                   "<?xml version=\"1.0\"?>\n<Workflows>\n    <Workflow Plugin=\"SamplePlugin\" "
                   "IsTemplate=\"True\" Id=\"Id_Flow0\" Name=\"Flow number 0\" RequiredProducts=\"alpha "
                   "&amp; beta\" CreatedDate=\"2016-01-01T00:00:00\">\n        <Settings>\n            <Step "
                   "Order=\"0\" Action=\"Collect\"/>\n        </Settings>\n    </Workflow>\n</Workflows>\n")
            << true;
        QTest::newRow("no declaration") << body << true;
        QTest::newRow("byte-order mark") << "\xEF\xBB\xBF<?xml version=\"1.0\"?>" + body << true;
        QTest::newRow("declaration variants")
            << "<?xml version='1.0' encoding='utf-8' standalone='no' ?>" + body << true;
        QTest::newRow("line ends")
            << QByteArray("<Workflows>\r\n<Workflow Id=\"A\" Name=\"a\r\nb\rc\td\">\r\n<Introduction>x\r\ny\r"
                          "</Introduction><Settings>\r\n<A>p\rq</A><!--c\r\n--><![CDATA[\r\n]]></Settings>"
                          "</Workflow></Workflows>")
            << true;
        QTest::newRow("references")
            << QByteArray("<Workflows><Workflow Id=\"&lt;&gt;&amp;&quot;&apos;&#65;&#x42;&#x1F600;&#10;\">"
                          "<Settings><A v='&#9;&#13;\"'>&#32;</A><B>&#160;</B><C>x&#13;y</C></Settings>"
                          "</Workflow></Workflows>")
            << true;
        QTest::newRow("sections and comments")
            << QByteArray(
                   "<!--a--><Workflows><!--b--><Workflow Id=\"A\"><Introduction><![CDATA[]]></Introduction>"
                   "<Settings><![CDATA[x]]]]><![CDATA[>]]><!----></Settings></Workflow></Workflows><!--c--> "
                   " ")
            << true;
        QTest::newRow("prefixed names")
            << QByteArray("<Workflows><p:Workflow xmlns:p=\"u\" p:Id=\"A\" Id=\"B\"/><Workflow Id=\"C\">"
                          "<Settings><p:A p:b=\"1\" xml:lang=\"en\"/></Settings></Workflow></Workflows>")
            << true;
        QTest::newRow("zero-width no-break space")
            << QByteArray(
                   "<Workflows><Workflow Id=\"\xEF\xBB\xBF\"><Introduction>\xEF\xBB\xBFx</Introduction>"
                   "<Settings>\xEF\xBB\xBF</Settings></Workflow></Workflows>")
            << true;
        QTest::newRow("document type") << "<!DOCTYPE Workflows>" + body << false;
        QTest::newRow("instruction inside") << QByteArray("<Workflows><?p d?></Workflows>") << false;
        QTest::newRow("instruction before") << "<?p d?>" + body << false;
        QTest::newRow("other encoding") << "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + body << false;
        QTest::newRow("other version") << "<?xml version=\"1.1\"?>" + body << false;
        QTest::newRow("declaration names run together")
            << "<?xml version=\"1.0\" encodingstandalone=\"yes\"?>" + body << false;
        QTest::newRow("declaration name without value")
            << "<?xml version=\"1.0\" encoding standalone=\"yes\"?>" + body << false;
        QTest::newRow("blank before declaration") << " <?xml version=\"1.0\"?>" + body << false;
        QTest::newRow("name outside ASCII") << QByteArray("<Workflows><W\xC3\xA9/></Workflows>") << false;
        QTest::newRow("undeclared entity") << QByteArray("<Workflows a=\"&e;\"/>") << false;
        QTest::newRow("upper-case hex reference") << QByteArray("<Workflows a=\"&#X41;\"/>") << false;
        QTest::newRow("reference to no character") << QByteArray("<Workflows a=\"&#1;\"/>") << false;
        QTest::newRow("control character") << QByteArray("<Workflows a=\"\x01\"/>") << false;
        QTest::newRow("broken UTF-8") << QByteArray("<Workflows a=\"\xC3\"/>") << false;
        QTest::newRow("U+FFFE") << QByteArray("<Workflows a=\"\xEF\xBF\xBE\"/>") << false;
        QTest::newRow("section end in text") << QByteArray("<Workflows>]]></Workflows>") << false;
        QTest::newRow("double hyphen in comment")
            << QByteArray("<Workflows><!-- a--b --></Workflows>") << false;
        QTest::newRow("repeated attribute") << QByteArray("<Workflows a=\"1\" a=\"2\"/>") << false;
        QTest::newRow("attributes run together") << QByteArray("<Workflows a=\"1\"b=\"2\"/>") << false;
        QTest::newRow("less-than in value") << QByteArray("<Workflows a=\"<\"/>") << false;
        QTest::newRow("tags crossed") << QByteArray("<Workflows><A></Workflows></A>") << false;
        QTest::newRow("second root") << QByteArray("<Workflows/><Workflows/>") << false;
        QTest::newRow("text after root") << QByteArray("<Workflows/>x") << false;
        QTest::newRow("cut short") << body.left(body.size() - 5) << false;
        QTest::newRow("empty") << QByteArray() << false;
        QByteArray deep = "<Workflows><Workflow><Settings>";
        for (int i = 0; i < 520; ++i)
            deep += "<D>";
        for (int i = 0; i < 520; ++i)
            deep += "</D>";
        QTest::newRow("too deep") << deep + "</Settings></Workflow></Workflows>" << false;
    }

    void commonShape()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, scanned);
        for (const QString& firstTag : {QString(), QStringLiteral("Workflow")})
        {
            WorkflowFileData quick;
            WorkflowFileData general;
            QCOMPARE(ScanCommonWorkflowFile(content, firstTag, quick), scanned);
            const StreamReadResult reference = ParseWorkflowFileWithReader(content, firstTag, general);
            if (!scanned)
            {
                QVERIFY(quick.elements.isEmpty() && quick.xlfFile.isNull());
                continue;
            }
            QCOMPARE(reference, StreamReadResult::Read);
            QVERIFY(!quick.elements.isEmpty());
            const QString difference = ExactDataDifference(quick, general);
            QVERIFY2(difference.isEmpty(), qPrintable(difference));
            // And the parse every reader goes through takes the common shape's reading.
            WorkflowFileData parsed;
            QCOMPARE(ParseWorkflowFile(content, firstTag, parsed), StreamReadResult::Read);
            QVERIFY(ExactDataDifference(parsed, general).isEmpty());
        }
        const QString path =
            Path(QStringLiteral("shape/%1.workflow").arg(QString::fromLatin1(QTest::currentDataTag())));
        QVERIFY(WriteFile(path, content));
        CompareFile(path);
    }

    void documentTypes()
    {
        const QString path = Path(QStringLiteral("doctype.workflow"));
        QVERIFY(WriteFile(
            path, "<!DOCTYPE Workflows [<!ENTITY e \"x<B/>y\">]><Workflows><Workflow Id=\"D\" Name=\"&e;\">"
                  "<Settings>&e;</Settings></Workflow></Workflows>"));
        WorkflowFileData data;
        QCOMPARE(ParseWorkflowFile(ReadFile(path), QString(), data), StreamReadResult::NeedsDocument);
        QCOMPARE(ReadWorkflowFileData(path, QString(), data), StreamReadResult::Read);
        QCOMPARE(data.elements.size(), 1);
        QVERIFY(data.elements.at(0).settings.ToString().contains(QLatin1String("<B/>")));
        CompareFile(path);
    }

    void damagedFiles_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("truncated") << QByteArray("<Workflows><Workflow Id=\"a\"><Settings><A>");
        QTest::newRow("trailing element") << QByteArray("<Workflows/><Workflows/>");
        QTest::newRow("undeclared entity") << QByteArray("<Workflows><Workflow Id=\"&x;\"/></Workflows>");
        QTest::newRow("text before root") << QByteArray("x<Workflows/>");
        QTest::newRow("repeated attribute")
            << QByteArray("<Workflows><Workflow Id=\"a\" Id=\"b\"/></Workflows>");
        QByteArray deep = "<Workflows><Workflow><Settings>";
        for (int i = 0; i < 520; ++i)
            deep += "<D>";
        for (int i = 0; i < 520; ++i)
            deep += "</D>";
        QTest::newRow("too deep") << deep + "</Settings></Workflow></Workflows>";
    }

    void damagedFiles()
    {
        QFETCH(QByteArray, content);
        const QString path =
            Path(QStringLiteral("damaged/%1.workflow").arg(QString::fromLatin1(QTest::currentDataTag())));
        QVERIFY(WriteFile(path, content));
        WorkflowFileData data;
        QCOMPARE(ReadWorkflowFileData(path, QString(), data), StreamReadResult::Unreadable);
        QVERIFY(data.elements.isEmpty());
        CompareFile(path);
    }

    void sampleFiles()
    {
        ResetCounts();
        const QString share = QStringLiteral(VMWF_SOURCE_DIR "/share");
        QDirIterator it(share,
                        {QStringLiteral("*.workflow"), QStringLiteral("*.xml"), QStringLiteral("*.xlf")},
                        QDir::Files, QDirIterator::Subdirectories);
        int files = 0;
        Imp()->SetCurrentLocale(kLocale);
        Imp()->SetWorkflowSearchPaths(share + QStringLiteral("/workflows/templates"));
        while (it.hasNext())
        {
            CompareFile(it.next());
            if (QTest::currentTestFailed())
                return;
            ++files;
        }
        std::printf(
            "sample files compared: %d (%d readable, %d read in the common shape), %d workflow records "
            "loaded\n",
            files, m_readFiles, m_scannedFiles, m_loads);
        // Every shipped file is in the common shape.
        QCOMPARE(m_scannedFiles, m_readFiles);
        QVERIFY(files >= 10);
        QVERIFY(m_settingsBodies > 0);
    }

    void generatedFiles()
    {
        ResetCounts();
        Generator generator(Seed());
        const QString folder = Path(QStringLiteral("generated"));
        QStringList names;
        for (int i = 0; i < 400; ++i)
            names.append(QStringLiteral("gen_%1.workflow").arg(i, 4, 10, QLatin1Char('0')));
        QVERIFY(WriteCatalogue(folder, names));
        for (const QString& name : std::as_const(names))
            QVERIFY(WriteFile(folder + QLatin1Char('/') + name, generator.Document()));
        // The catalogue of translations is found on the search paths in the locale's folder.
        Imp()->SetCurrentLocale(kLocale);
        Imp()->SetWorkflowSearchPaths(folder);
        for (const QString& name : std::as_const(names))
        {
            CompareFile(folder + QLatin1Char('/') + name);
            if (QTest::currentTestFailed())
            {
                qWarning("generated file %s (seed %u) differs", qPrintable(name), Seed());
                return;
            }
        }
        for (int i = 0; i < 100; ++i)
        {
            const QString path = Path(QStringLiteral("settings/s%1.xml").arg(i));
            QVERIFY(WriteFile(path, generator.SettingsDocument()));
            CompareFile(path);
            if (QTest::currentTestFailed())
                return;
        }
        std::printf(
            "generated: %d readable (%d through the document for their entities, %d in the common shape), %d "
            "unreadable, %d settings bodies, %d records loaded\n",
            m_readFiles, m_documentTypeFiles, m_scannedFiles, m_unreadableFiles, m_settingsBodies, m_loads);
        // The generator must reach every branch worth comparing.
        QVERIFY(m_readFiles > 200);
        QVERIFY(m_unreadableFiles > 10);
        QVERIFY(m_documentTypeFiles > 0);
        QVERIFY(m_settingsBodies > 100);
        QVERIFY(m_loads > 200);
        QVERIFY(m_scannedFiles > 100);
    }

    // A whole scan gives the same catalogue and the same signals either way.
    void fullScan()
    {
        Generator generator(Seed() + 1);
        const QString folder = Path(QStringLiteral("scan"));
        QStringList names;
        for (int i = 0; i < 60; ++i)
            names.append(QStringLiteral("scan_%1.workflow").arg(i, 3, 10, QLatin1Char('0')));
        QVERIFY(WriteCatalogue(folder, names));
        for (const QString& name : std::as_const(names))
            QVERIFY(WriteFile(folder + QLatin1Char('/') + name, generator.Document()));
        // An orphan the scan drops, and a user workflow that takes its template's products.
        QVERIFY(WriteFile(
            folder + QStringLiteral("/zz_orphan.workflow"),
            WorkflowDocument(WorkflowElement(R"(Id="Orphan" IsTemplate="False" TemplateId="None")"))));
        QVERIFY(WriteFile(
            folder + QStringLiteral("/zz_inherit.workflow"),
            WorkflowDocument(
                WorkflowElement(
                    R"(Id="InhT" PrimaryProduct="alpha" TargetProduct="alpha:2016" RequiredProducts="alpha")") +
                WorkflowElement(R"(Id="InhU" IsTemplate="False" TemplateId="InhT" TargetProduct="alpha")"))));
        Imp()->SetCurrentLocale(kLocale);
        Imp()->SetWorkflowSearchPaths(folder + QLatin1Char(';') + folder);

        QStringList emitted;
        const auto record = [&emitted](const char* name) {
            return [&emitted, name](int value) {
                emitted.append(QStringLiteral("%1(%2)").arg(QLatin1String(name)).arg(value));
            };
        };
        WorkflowManagerImp* imp = Imp();
        QList<QMetaObject::Connection> connections = {
            connect(imp, &WorkflowManagerImp::WorkflowAboutToBeInserted, this, record("AboutToBeInserted")),
            connect(imp, &WorkflowManagerImp::WorkflowInserted, this, record("Inserted")),
            connect(imp, &WorkflowManagerImp::WorkflowAboutToBeRemoved, this, record("AboutToBeRemoved")),
            connect(imp, &WorkflowManagerImp::WorkflowRemoved, this, record("Removed")),
            connect(imp, &WorkflowManagerImp::WorkflowModified, this, record("Modified")),
        };

        const auto scan = [&](bool documents, QStringList& seen, QList<WorkflowFields>& fields) {
            imp->SetScanReadsDocuments(documents);
            imp->EmptyCatalogue();
            emitted.clear();
            imp->ScanCatalogue();
            seen = emitted;
            for (Workflow* workflow : imp->Catalogue())
                fields.append(ImpOf(workflow)->Fields());
        };
        QStringList streamedSignals;
        QStringList documentSignals;
        QList<WorkflowFields> streamed;
        QList<WorkflowFields> document;
        scan(false, streamedSignals, streamed);
        scan(true, documentSignals, document);
        imp->SetScanReadsDocuments(false);
        for (const auto& connection : connections)
            disconnect(connection);

        std::printf("scan: %lld workflows, %lld signals\n", static_cast<long long>(streamed.size()),
                    static_cast<long long>(streamedSignals.size()));
        QVERIFY(streamed.size() > 20);
        QVERIFY(!streamedSignals.filter(QStringLiteral("AboutToBeRemoved")).isEmpty());
        QVERIFY(std::any_of(streamed.cbegin(), streamed.cend(),
                            [](const WorkflowFields& fields) { return fields.ProductsInherited; }));
        QCOMPARE(streamedSignals, documentSignals);
        QCOMPARE(streamed.size(), document.size());
        for (qsizetype i = 0; i < streamed.size(); ++i)
        {
            const QString difference = FieldsDifference(streamed.at(i), document.at(i));
            QVERIFY2(difference.isEmpty(),
                     qPrintable(QStringLiteral("workflow %1: %2").arg(i).arg(difference)));
        }
    }

    // The first read of the settings file answers as the document read did.
    void settingsLookups()
    {
        Generator generator(Seed() + 2);
        const QString file = WorkflowSettingsFile();
        QVERIFY(!file.isEmpty());
        int answered = 0;
        for (int round = 0; round < 40; ++round)
        {
            QVERIFY(WriteFile(file, generator.SettingsDocument()));
            // A distinct modification time for each round: the reader keeps what it read while
            // the file looks the same.
            QFile written(file);
            QVERIFY(written.open(QIODevice::ReadWrite));
            QVERIFY(written.setFileTime(QDateTime(QDate(2020, 1, 1), QTime(0, 0)).addSecs(round),
                                        QFileDevice::FileModificationTime));
            written.close();
            QHash<QString, QHash<QString, QString>> reference;
            const bool readable = ReadWorkflowSettingsFile(file, reference, true);
            for (const QString& id : {QStringLiteral("Id_0"), QStringLiteral("Id_1"), QStringLiteral("id_1"),
                                      QStringLiteral("Id_&"), QString(), QStringLiteral("Id_9")})
            {
                for (const QString& key :
                     {QStringLiteral("ShowIntroductionOnExecute"), QStringLiteral("Key"),
                      QStringLiteral("Id"), QStringLiteral("p:q"), QStringLiteral("xmlns:p")})
                {
                    const QString expected = readable ? reference.value(id).value(key) : QString();
                    QCOMPARE(WorkflowSettingsStore().Read(id, key), expected);
                    answered += expected.isEmpty() ? 0 : 1;
                }
            }
        }
        QVERIFY(answered > 20);
    }
};

QTEST_GUILESS_MAIN(tst_ReaderEquivalence)
#include "tst_readerequivalence.moc"
