// SPDX-License-Identifier: MIT
// The per-user index of the catalogue is a cache and nothing more: a catalogue scanned with it
// must equal the catalogue scanned without it, field for field and signal for signal, whatever
// happened to the files, their translations, the locale or the user's settings in between; and
// an index that is damaged, truncated, written for another catalogue or by a later format, or
// that cannot be written at all, only costs speed. The seed of the random files and mutations
// is printed; set VMWF_INDEX_SEED to repeat a run.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/CatalogueIndex.h"
#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "util/FileUtil.h"
#include "util/XlfCatalog.h"
#include "workflow/WorkflowImp.h"
#include "workflow/WorkflowSettings.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"

#include <QDirIterator>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QtTest>

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

WorkflowManagerImp* Imp()
{
    return ImpOf(WorkflowManager::GetInstance());
}

quint32 Seed()
{
    static const quint32 seed = qEnvironmentVariableIsSet("VMWF_INDEX_SEED")
                                    ? qEnvironmentVariable("VMWF_INDEX_SEED").toUInt()
                                    : QRandomGenerator::global()->generate();
    return seed;
}

// A time well in the past: files of that age are trusted from the index.
QDateTime Old(int seconds = 0)
{
    return QDateTime(QDate(2021, 6, 1), QTime(8, 0, 0), Qt::UTC).addSecs(seconds);
}

bool SetModified(const QString& path, const QDateTime& when)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite))
        return false;
    return file.setFileTime(when, QFileDevice::FileModificationTime);
}

// Sets the modification time to the nanosecond.
bool SetModifiedNs(const QString& path, qint64 seconds, long nanoseconds)
{
    const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(seconds), nanoseconds}};
    return ::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) == 0;
}

// Every field of a record as text, in one line per field.
QStringList Described(const WorkflowFields& m)
{
    const auto date = [](const QDateTime& d) {
        return d.isValid() ? d.toString(Qt::ISODateWithMs) + QLatin1Char('/') + QString::number(d.timeSpec())
                           : QStringLiteral("invalid");
    };
    const auto text = [](const QString& t) {
        return t.isNull() ? QStringLiteral("<null>") : QLatin1Char('[') + t + QLatin1Char(']');
    };
    return {QStringLiteral("TemplateId ") + text(m.TemplateId),
            QStringLiteral("IsTemplate %1").arg(m.IsTemplate),
            QStringLiteral("Id ") + text(m.Id),
            QStringLiteral("HelpId ") + text(m.HelpId),
            QStringLiteral("Name ") + text(m.Name),
            QStringLiteral("Description ") + text(m.Description),
            QStringLiteral("TemplateImage ") + text(m.TemplateImage),
            QStringLiteral("ModifiedImage ") + text(m.ModifiedImage),
            QStringLiteral("Tooltip ") + text(m.Tooltip),
            QStringLiteral("Keywords ") + text(m.Keywords),
            QStringLiteral("Tag ") + text(m.Tag),
            QStringLiteral("UIFile ") + text(m.UIFile),
            QStringLiteral("Settings ") + text(m.Settings.ToString()),
            QStringLiteral("Settings in bytes %1").arg(m.Settings.IsNarrow()),
            QStringLiteral("SourceFile ") + text(m.SourceFile),
            QStringLiteral("Plugin ") + text(m.Plugin),
            QStringLiteral("PrimaryProduct ") + text(m.PrimaryProduct),
            QStringLiteral("RequiredProducts ") + text(m.RequiredProducts),
            QStringLiteral("TargetProduct ") + text(m.TargetProduct),
            QStringLiteral("RequiredProductsDisplayText ") + text(m.RequiredProductsDisplayText),
            QStringLiteral("CreatedDate ") + date(m.CreatedDate),
            QStringLiteral("LastModifiedDate ") + date(m.LastModifiedDate),
            QStringLiteral("Introduction ") + text(m.Introduction),
            QStringLiteral("IsReadOnly %1").arg(m.IsReadOnly),
            QStringLiteral("XlfFile ") + text(m.XlfFile),
            QStringLiteral("ShowIntroductionOnExecute %1").arg(m.ShowIntroductionOnExecute),
            QStringLiteral("UIStateChanged %1").arg(m.UIStateChanged),
            QStringLiteral("IsModified %1").arg(m.IsModified),
            QStringLiteral("ProductsInherited %1").arg(m.ProductsInherited),
            QStringLiteral("ImageTablesBuilt %1").arg(m.ImageTablesBuilt)};
}

// Random workflow files with the constructs a reader can get wrong.
class Generator
{
public:
    explicit Generator(quint32 seed) : m_random(seed) {}

    int Below(int n) { return static_cast<int>(m_random.bounded(n)); }

    QByteArray Text(int serial)
    {
        switch (Below(8))
        {
        case 0:
            return "tr(Name " + QByteArray::number(serial % 7) + ")";
        case 1:
            return "Caf\xc3\xa9 &amp; &#x41;&#66; &lt;x&gt; \xe6\x97\xa5\xe6\x9c\xac";
        case 2:
            return "  spaced\tout \n text  ";
        case 3:
            return QByteArray();
        case 4:
            return "&quot;quoted&quot; &apos;too&apos;";
        case 5:
            // Beyond ASCII, yet every character one byte in Latin-1.
            return "Cr\xc3\xa8me br\xc3\xbbl\xc3\xa9"
                   "e \xc3\xbf";
        default:
            return "Plain text " + QByteArray::number(Below(1000));
        }
    }

    QByteArray Element(int serial)
    {
        QByteArray attributes;
        const QByteArray id = "Id_" + QByteArray::number(serial);
        const bool isTemplate = Below(3) != 0;
        attributes += "Id=\"" + id + "\" ";
        attributes += isTemplate ? "IsTemplate=\"True\" " : "IsTemplate=\"false\" TemplateId=\"Id_0\" ";
        if (Below(4) != 0)
            attributes += "Name=\"" + Text(serial) + "\" ";
        if (Below(2) == 0)
            attributes += "Description=\"" + Text(serial + 1) + "\" ";
        if (Below(3) == 0)
            attributes += "Plugin=\"Sample.so\" PrimaryProduct=\"alpha\" TargetProduct=\"alpha:2016\" ";
        if (Below(3) == 0)
            attributes += "CreatedDate=\"2016-0" + QByteArray::number(1 + Below(9)) + "-01T10:00:00\" ";
        if (Below(4) == 0)
            attributes += "LastModifiedDate=\"bad date\" ";
        if (Below(4) == 0)
            attributes += "Unknown=\"x\" TemplateImage=\"a.png|b.png\" ";
        if (Below(5) == 0)
            attributes += "IsReadOnly=\"1\" ";
        QByteArray children;
        if (Below(2) == 0)
            children += Below(2) == 0 ? "<Introduction><![CDATA[Read <this> & go]]></Introduction>"
                                      : "<Introduction>" + Text(serial + 2) + "</Introduction>";
        if (Below(4) == 0)
            children += "<!-- a comment --><Unknown a=\"b\"/>";
        if (serial % 4 == 0 || Below(3) != 0)
            children += Settings(serial);
        return WorkflowElement(attributes, children);
    }

    // Settings markup of every kind a record keeps: with steps (their texts in ASCII, in Latin-1
    // beyond ASCII, or beyond Latin-1), short or long enough for the index to keep it apart from
    // its entry, and empty in each way it can be written. Every fourth element has long markup.
    QByteArray Settings(int serial)
    {
        if (serial % 4 == 0)
            return LongSettings(serial, true);
        switch (Below(7))
        {
        case 6:
            return LongSettings(serial, false);
        case 0:
            return "<Settings></Settings>";
        case 1:
            return "<Settings/>";
        case 2:
            return "<Settings>\n    </Settings>";
        default:
            return "<Settings>\n  <Step Order=\"1\" Action=\"" + Text(serial + 3) +
                   "\"/><Note>text &amp; more</Note>\n</Settings>";
        }
    }

    // With plain, every character of it is ASCII.
    QByteArray LongSettings(int serial, bool plain)
    {
        QByteArray steps;
        for (int i = 3 + Below(6); i > 0; --i)
            steps += "\n  <Step Order=\"" + QByteArray::number(i) + "\" Action=\"" +
                     (plain ? "Part " + QByteArray::number(serial + i) : Text(serial + i)) + "\"/>";
        return "<Settings>" + steps + "\n  <Note>Collect the figures of part " + QByteArray::number(serial) +
               "</Note>\n</Settings>";
    }

    QByteArray Document(int& serial)
    {
        QByteArray elements;
        for (int i = 1 + Below(3); i > 0; --i)
            elements += Element(serial++);
        QByteArray document = WorkflowDocument(elements, Below(2) == 0 ? QByteArray("Texts") : QByteArray());
        if (Below(12) == 0)
            document.chop(5 + Below(20)); // damaged: it ends too soon
        return document;
    }

private:
    QRandomGenerator m_random;
};

// A translation file for "Texts" in the locale, translating the generator's tr(...) texts for
// every workflow file name given.
QByteArray TranslationDocument(const QStringList& fileNames, const QString& flavour)
{
    QByteArray xlf = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<xliff version=\"1.2\">\n";
    for (const QString& name : fileNames)
    {
        xlf += "<file original=\"" + name.toUtf8() + "\"><body>\n";
        for (int i = 0; i < 7; ++i)
        {
            const QString source = QStringLiteral("tr(Name %1)").arg(i);
            xlf += "<trans-unit id=\"" + TranslationUnitId(source).toUtf8() + "\"><source>" +
                   source.toUtf8() + "</source><target>" + flavour.toUtf8() + " " + QByteArray::number(i) +
                   "</target></trans-unit>\n";
        }
        xlf += "</body></file>\n";
    }
    return xlf + "</xliff>\n";
}

struct Scan
{
    QStringList signalsSeen;
    QList<QStringList> records;
    qsizetype filesRead = 0;
};

} // namespace

class tst_CatalogueIndex : public QObject
{
    Q_OBJECT

    TestEnvironment m_env;
    QTemporaryDir m_dir;
    QString m_folder;
    QStringList m_names;
    int m_serial = 0;
    // Whether scans take the index's entries as they are loaded, as a process's first one does,
    // or ask every file for its status first, as later ones do.
    bool m_takeAsLoaded = false;

    // A fresh start of the catalogue: a new manager, the search path set, one scan.
    Scan ScanOnce(bool useIndex, const QString& locale = QStringLiteral("en-US"))
    {
        Scan scan;
        WorkflowManager::Uninitialize();
        if (!WorkflowManager::Initialize())
            return scan;
        WorkflowManagerImp* imp = Imp();
        imp->SetScanUsesIndex(useIndex);
        imp->SetScanTakesEntriesAsLoaded(m_takeAsLoaded);
        imp->SetCurrentLocale(locale);
        const auto record = [&scan](const char* name) {
            return [&scan, name](int value) {
                scan.signalsSeen.append(QStringLiteral("%1(%2)").arg(QLatin1String(name)).arg(value));
            };
        };
        QObject context;
        connect(imp, &WorkflowManagerImp::WorkflowAboutToBeInserted, &context, record("AboutToBeInserted"));
        connect(imp, &WorkflowManagerImp::WorkflowInserted, &context, record("Inserted"));
        connect(imp, &WorkflowManagerImp::WorkflowAboutToBeRemoved, &context, record("AboutToBeRemoved"));
        connect(imp, &WorkflowManagerImp::WorkflowRemoved, &context, record("Removed"));
        connect(imp, &WorkflowManagerImp::WorkflowModified, &context, record("Modified"));
        // The folder twice: a file listed twice is entered once and read the same both times.
        imp->SetWorkflowSearchPaths(m_folder + QLatin1Char(';') + m_folder);
        scan.filesRead = imp->LastScanFilesRead();
        for (Workflow* workflow : imp->Catalogue())
            scan.records.append(Described(ImpOf(workflow)->Fields()));
        return scan;
    }

    // The catalogue with the index equals the catalogue without it; returns how many files the
    // scan with the index read.
    qsizetype CompareWithAndWithout(const char* step, const QString& locale = QStringLiteral("en-US"))
    {
        const Scan indexed = ScanOnce(true, locale);
        const Scan plain = ScanOnce(false, locale);
        const QByteArray where = QByteArray(step) + " (seed " + QByteArray::number(Seed()) + ")";
        if (indexed.signalsSeen != plain.signalsSeen)
        {
            QTest::qFail(where + ": the signals differ", __FILE__, __LINE__);
            return -1;
        }
        if (indexed.records.size() != plain.records.size())
        {
            QTest::qFail(where + ": the record counts differ", __FILE__, __LINE__);
            return -1;
        }
        for (qsizetype i = 0; i < indexed.records.size(); ++i)
        {
            for (qsizetype f = 0; f < indexed.records.at(i).size(); ++f)
            {
                if (indexed.records.at(i).at(f) != plain.records.at(i).at(f))
                {
                    const QByteArray what = where + ": record " + QByteArray::number(i) + ": " +
                                            indexed.records.at(i).at(f).toUtf8() + " against " +
                                            plain.records.at(i).at(f).toUtf8();
                    QTest::qFail(what.constData(), __FILE__, __LINE__);
                    return -1;
                }
            }
        }
        return indexed.filesRead;
    }

    // What a step read against what it should have, for a failure to say.
    static QByteArray ReadCount(const QByteArray& step, qsizetype read, qsizetype expected)
    {
        return step + ": " + QByteArray::number(read) + " files read, " + QByteArray::number(expected) +
               " expected";
    }

    QString PathOf(const QString& name) const { return m_folder + QLatin1Char('/') + name; }

    bool WriteTranslations(const QString& locale, const QString& flavour)
    {
        return WriteFile(m_folder + QLatin1Char('/') + locale + QStringLiteral("/Texts.xlf"),
                         TranslationDocument(m_names, flavour));
    }

    // The payloads of an index file's blocks in order, the head first: each block after the
    // fixed start is its length, a digest of eight bytes and the payload.
    static QList<QByteArray> Payloads(const QByteArray& bytes)
    {
        QList<QByteArray> payloads;
        qsizetype at = CatalogueIndex::kVersionOffset + 8;
        while (at + 12 <= bytes.size())
        {
            quint32 length;
            std::memcpy(&length, bytes.constData() + at, 4);
            payloads.append(bytes.mid(at + 12, length));
            at += 12 + qsizetype(length);
        }
        return payloads;
    }

    // The catalogue's key and the time its scan began, from the payload of an index file's head:
    // the key in bytes, then the time.
    static bool ReadHead(const QByteArray& head, QString& key, qint64& scanStarted)
    {
        quint32 keyLength;
        std::memcpy(&keyLength, head.constData(), 4);
        if (!(keyLength & 0x80000000u))
            return false;
        keyLength &= ~0x80000000u;
        key = QString::fromLatin1(head.mid(4, keyLength));
        std::memcpy(&scanStarted, head.constData() + 4 + keyLength, 8);
        return true;
    }

    // No workflow files, and no index of them.
    void ClearCatalogue()
    {
        QDir(m_folder).removeRecursively();
        QDir(QFileInfo(IndexFile()).absolutePath()).removeRecursively();
        m_names.clear();
    }

    // Where each block after the head starts in an index file, with the kind of entry its
    // payload begins with.
    static QList<std::pair<qsizetype, char>> Blocks(const QByteArray& bytes)
    {
        QList<std::pair<qsizetype, char>> blocks;
        qsizetype at = CatalogueIndex::kVersionOffset + 8;
        for (bool head = true; at + 12 < bytes.size(); head = false)
        {
            quint32 length;
            std::memcpy(&length, bytes.constData() + at, 4);
            if (!head)
                blocks.append({at, bytes.at(at + 12)});
            at += 12 + qsizetype(length);
        }
        return blocks;
    }

    // Where the payload of the first block of that kind at or after from starts (of the last
    // one before from when none follows); -1 when the file has none.
    static qsizetype PayloadNear(const QByteArray& bytes, char kind, qsizetype from)
    {
        qsizetype found = -1;
        for (const auto& [at, blockKind] : Blocks(bytes))
        {
            if (blockKind != kind)
                continue;
            found = at + 12;
            if (at >= from)
                break;
        }
        return found;
    }

    QString IndexFile(const QString& locale = QStringLiteral("en-US")) const
    {
        return CatalogueIndex::FileFor({m_folder, m_folder, Imp()->UserWorkflowFolder()}, locale);
    }

    // A folder of generated files, all of them old, and an index of them.
    void MakeCatalogue(Generator& generator, int files)
    {
        ClearCatalogue();
        for (int i = 0; i < files; ++i)
        {
            const QString name = QStringLiteral("flow_%1.workflow").arg(i, 3, 10, QLatin1Char('0'));
            QVERIFY(WriteFile(PathOf(name), generator.Document(m_serial)));
            QVERIFY(SetModified(PathOf(name), Old(i)));
            m_names.append(name);
        }
        QVERIFY(WriteTranslations(QStringLiteral("en-US"), QStringLiteral("English")));
        QVERIFY(WriteTranslations(QStringLiteral("de-DE"), QStringLiteral("Deutsch")));
    }

    // Each test of this column runs twice: scans taking the index's entries as they are
    // loaded, and scans asking every file for its status first.
    static void AddTakingColumn()
    {
        QTest::addColumn<bool>("takeAsLoaded");
        QTest::newRow("taken as loaded") << true;
        QTest::newRow("status first") << false;
    }
    void FetchTaking()
    {
        QFETCH(bool, takeAsLoaded);
        m_takeAsLoaded = takeAsLoaded;
    }

private slots:
    void init() { m_takeAsLoaded = false; }

    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(m_dir.isValid());
        m_folder = m_dir.filePath(QStringLiteral("workflows"));
        std::printf("seed %u (set VMWF_INDEX_SEED to repeat it)\n", Seed());
        std::fflush(stdout);
        QVERIFY(WorkflowManager::Initialize());
    }

    void cleanupTestCase() { WorkflowManager::Uninitialize(); }

    // The listing the scan makes itself gives the files, order and paths a folder listing for
    // "*.workflow" gives: names in any case, no hidden files, links to files but no broken
    // links, folders or pipes.
    void listingMatchesTheFolderListing()
    {
        const QString folder = m_dir.filePath(QStringLiteral("listing"));
        QVERIFY(QDir().mkpath(folder + QStringLiteral("/sub.workflow")));
        for (const char* name :
             {"b.workflow", "A.workflow", "a.WORKFLOW", "_x.Workflow", ".hidden.workflow", "z.workflow.bak",
              "\xc3\xa9t\xc3\xa9.workflow", "10.workflow", "9.workflow", "space name.workflow"})
            QVERIFY(WriteFile(folder + QLatin1Char('/') + QString::fromUtf8(name), "<Workflows/>"));
        QVERIFY(
            QFile::link(folder + QStringLiteral("/b.workflow"), folder + QStringLiteral("/link.workflow")));
        QVERIFY(
            QFile::link(folder + QStringLiteral("/missing"), folder + QStringLiteral("/broken.workflow")));
        QCOMPARE(::mkfifo(QFile::encodeName(folder + QStringLiteral("/pipe.workflow")).constData(), 0600), 0);

        QStringList expected =
            FindFiles(folder, QStringLiteral("*.workflow"), QDir::Files, QDir::Name, false);
        for (QString& file : expected)
            file = QFileInfo(file).absoluteFilePath();
        QStringList listed;
        for (const auto& file : WorkflowManagerImp::ListWorkflowFiles(folder))
        {
            listed.append(file.path);
            QVERIFY(file.identity.exists);
            QCOMPARE(file.identity, Platform::IdentifyFile(file.path));
        }
        QCOMPARE(listed, expected);
        QCOMPARE(listed.size(), 9);
        // A relative folder is listed by its absolute path.
        const QString current = QDir::currentPath();
        QVERIFY(QDir::setCurrent(m_dir.path()));
        QStringList relative;
        for (const auto& file : WorkflowManagerImp::ListWorkflowFiles(QStringLiteral("./listing/../listing")))
            relative.append(file.path);
        QVERIFY(QDir::setCurrent(current));
        QCOMPARE(relative, expected);
        // However the folder is spelled, every path is clean: the records take it as it is.
        for (const QString& spelling :
             {folder + QStringLiteral("/"), folder + QStringLiteral("//"), folder + QStringLiteral("/./"),
              m_dir.path() + QStringLiteral("//listing/../listing/.")})
        {
            QStringList spelled;
            for (const auto& file : WorkflowManagerImp::ListWorkflowFiles(spelling))
            {
                QCOMPARE(file.path, QDir::cleanPath(file.path));
                spelled.append(file.path);
            }
            QCOMPARE(spelled, expected);
        }
    }

    // A search path written with doubled separators, "." and ".." names the same files: every
    // record, read from its file or taken from the index, names its file by the clean path.
    void searchPathsSpelledUncleanlyGiveCleanSourceFiles_data() { AddTakingColumn(); }
    void searchPathsSpelledUncleanlyGiveCleanSourceFiles()
    {
        FetchTaking();
        Generator generator(Seed());
        MakeCatalogue(generator, 12);
        const QString clean = m_folder;
        m_folder = m_dir.path() + QStringLiteral("//workflows/../workflows/./");
        const auto restore = qScopeGuard([this, clean] { m_folder = clean; });
        QCOMPARE(CompareWithAndWithout("unclean, first"), qsizetype(24));
        QCOMPARE(CompareWithAndWithout("unclean, again"), qsizetype(0));
        const Scan scan = ScanOnce(true);
        QVERIFY(!scan.records.isEmpty());
        for (const QStringList& record : scan.records)
        {
            const QString source = record.filter(QStringLiteral("SourceFile ")).value(0);
            QVERIFY2(source.startsWith(QStringLiteral("SourceFile [") + clean + QLatin1Char('/')) &&
                         !source.contains(QStringLiteral("//")) && !source.contains(QStringLiteral("/./")) &&
                         !source.contains(QStringLiteral("/../")),
                     qPrintable(source));
        }
    }

    // A later start with nothing changed reads no file at all; each change is read again, and
    // the catalogue always equals the one read without the index.
    void mutationsBetweenScans_data() { AddTakingColumn(); }
    void mutationsBetweenScans()
    {
        FetchTaking();
        Generator generator(Seed());
        MakeCatalogue(generator, 40);
        QCOMPARE(CompareWithAndWithout("first scan"), qsizetype(80));
        QVERIFY(QFileInfo::exists(IndexFile()));
        QCOMPARE(CompareWithAndWithout("unchanged"), qsizetype(0));

        int mutations = 0;
        for (int round = 0; round < 60; ++round)
        {
            const int victim = generator.Below(static_cast<int>(m_names.size()));
            const QString name = m_names.at(victim);
            const QString path = PathOf(name);
            const QByteArray before = ReadFile(path);
            const QFileInfo info(path);
            qsizetype expectedReads = 1;
            QByteArray step;
            switch (generator.Below(9))
            {
            case 0: // an edit, then the file left alone for long
                step = "edit";
                QVERIFY(WriteFile(path, generator.Document(m_serial)));
                QVERIFY(SetModified(path, Old(1000 + round)));
                break;
            case 1:
            {
                // Touched within the same second as before, to another fraction of it, with the
                // same size and the same file.
                step = "same-second edit";
                QByteArray changed = before;
                const qsizetype at = changed.indexOf("Id_");
                if (at < 0)
                {
                    expectedReads = 0;
                    break;
                }
                changed[at + 1] = changed[at + 1] == 'd' ? 'D' : 'd';
                const qint64 seconds = info.lastModified().toSecsSinceEpoch();
                QVERIFY(WriteFile(path, changed));
                QVERIFY(SetModifiedNs(path, seconds, 123456789 + round));
                break;
            }
            case 2: // renamed
            {
                step = "rename";
                const QString renamed = QStringLiteral("renamed_%1.workflow").arg(round);
                QVERIFY(QFile::rename(path, PathOf(renamed)));
                m_names[victim] = renamed;
                break;
            }
            case 3:
                step = "delete";
                QVERIFY(QFile::remove(path));
                m_names.removeAt(victim);
                expectedReads = 0;
                break;
            case 4:
            {
                step = "add";
                const QString added = QStringLiteral("added_%1.workflow").arg(round);
                QVERIFY(WriteFile(PathOf(added), generator.Document(m_serial)));
                QVERIFY(SetModified(PathOf(added), Old(2000 + round)));
                m_names.append(added);
                break;
            }
            case 5:
            {
                // Replaced by another file of the same size and the same modification time: only
                // the file's identity tells.
                step = "replace by a file of the same size";
                QByteArray other = before;
                const qsizetype at = other.indexOf("Id_");
                if (at >= 0)
                    other[at + 1] = other[at + 1] == 'd' ? 'D' : 'd';
                const QString temporary = PathOf(QStringLiteral("replacement.tmp"));
                QVERIFY(WriteFile(temporary, other));
                struct stat status;
                QCOMPARE(::stat(QFile::encodeName(path).constData(), &status), 0);
                QVERIFY(SetModifiedNs(temporary, status.st_mtim.tv_sec, status.st_mtim.tv_nsec));
                QCOMPARE(
                    ::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(path).constData()),
                    0);
                break;
            }
            case 6: // a translation changed
                step = "translation";
                QVERIFY(WriteTranslations(QStringLiteral("en-US"), QStringLiteral("English %1").arg(round)));
                expectedReads = 0;
                break;
            case 7:
            {
                // The user's choices: every template's introduction turned off or on.
                step = "settings";
                // With no catalogue alive, whose templates would write their own choices back.
                WorkflowManager::Uninitialize();
                WorkflowSettingsStore store;
                for (int i = 0; i < m_serial; ++i)
                    store.Write(QStringLiteral("Id_%1").arg(i), QStringLiteral("ShowIntroductionOnExecute"),
                                (i + round) % 2 ? QStringLiteral("False") : QStringLiteral("True"));
                expectedReads = 0;
                break;
            }
            default:
                step = "another locale";
                QCOMPARE(CompareWithAndWithout("another locale", QStringLiteral("de-DE")) >= 0, true);
                expectedReads = 0;
                break;
            }
            ++mutations;
            const qsizetype read = CompareWithAndWithout(step.constData());
            QVERIFY2(read >= 0, step.constData());
            // Each mutated file is read once more (twice: the folder is listed twice); nothing
            // else is.
            QVERIFY2(read == 2 * expectedReads, ReadCount(step, read, 2 * expectedReads).constData());
            QCOMPARE(CompareWithAndWithout("after a mutation, again"), qsizetype(0));
        }
        QCOMPARE(mutations, 60);
    }

    // A file changed a moment ago may change again within the same tick of the clock after it
    // was read: it is read again at every start until it is older.
    void recentlyChangedFilesAreReadAgain()
    {
        Generator generator(Seed() + 1);
        MakeCatalogue(generator, 10);
        QCOMPARE(CompareWithAndWithout("first scan"), qsizetype(20));
        QVERIFY(WriteFile(PathOf(m_names.at(3)), generator.Document(m_serial)));
        QCOMPARE(CompareWithAndWithout("just changed"), qsizetype(2));
        QCOMPARE(CompareWithAndWithout("still young"), qsizetype(2));
        QVERIFY(SetModified(PathOf(m_names.at(3)), Old(77)));
        QCOMPARE(CompareWithAndWithout("old now"), qsizetype(2));
        QCOMPARE(CompareWithAndWithout("settled"), qsizetype(0));
    }

    // Rewritten in place (the same inode) to the same size, its modification time then put back
    // as a copy that keeps times puts it: only the status-change time tells.
    void aFileRewrittenInPlaceWithItsTimesKeptIsReadAgain()
    {
        Generator generator(Seed() + 3);
        MakeCatalogue(generator, 6);
        QCOMPARE(CompareWithAndWithout("first scan"), qsizetype(12));
        QCOMPARE(CompareWithAndWithout("unchanged"), qsizetype(0));
        const QString path = PathOf(m_names.at(2));
        struct stat before;
        QCOMPARE(::stat(QFile::encodeName(path).constData(), &before), 0);
        QByteArray content = ReadFile(path);
        const qsizetype at = content.indexOf("Id_");
        QVERIFY(at >= 0);
        content[at + 1] = content.at(at + 1) == 'd' ? 'D' : 'd';
        {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
            QCOMPARE(file.write(content), content.size());
        }
        QVERIFY(SetModifiedNs(path, before.st_mtim.tv_sec, before.st_mtim.tv_nsec));
        struct stat after;
        QCOMPARE(::stat(QFile::encodeName(path).constData(), &after), 0);
        QCOMPARE(after.st_ino, before.st_ino);
        QCOMPARE(after.st_size, before.st_size);
        QCOMPARE(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
        QCOMPARE(CompareWithAndWithout("rewritten in place"), qsizetype(2));
        QCOMPARE(CompareWithAndWithout("settled"), qsizetype(0));
    }

    // An index that is not an intact index of this catalogue in this format is never trusted:
    // every file is read, and the index is written anew.
    void damagedIndexesAreIgnoredAndRebuilt_data()
    {
        QTest::addColumn<QString>("damage");
        QTest::addColumn<bool>("takeAsLoaded");
        for (const char* damage :
             {"truncated to nothing", "truncated in the header", "truncated in a file",
              "truncated by one byte", "one byte flipped", "a byte appended", "a later format",
              "foreign bytes", "another catalogue's index", "a folder",
              "a file's texts announced one unit short", "a file's texts announced one unit long",
              "a file's markup written wide though it fits in bytes", "a markup block left out",
              "a markup block one byte longer", "a markup block where an entry belongs"})
        {
            QTest::addRow("%s, taken as loaded", damage) << QString::fromLatin1(damage) << true;
            QTest::addRow("%s, status first", damage) << QString::fromLatin1(damage) << false;
        }
    }
    void damagedIndexesAreIgnoredAndRebuilt()
    {
        FetchTaking();
        QFETCH(QString, damage);
        Generator generator(Seed() + 2);
        MakeCatalogue(generator, 12);
        QCOMPARE(CompareWithAndWithout("first scan"), qsizetype(24));
        QCOMPARE(CompareWithAndWithout("unchanged"), qsizetype(0));
        const QString index = IndexFile();
        QByteArray bytes = ReadFile(index);
        QVERIFY(bytes.size() > 200);
        if (damage == QLatin1String("truncated to nothing"))
            bytes.clear();
        else if (damage == QLatin1String("truncated in the header"))
            bytes.truncate(10);
        else if (damage == QLatin1String("truncated in a file"))
            bytes.truncate(bytes.size() / 2);
        else if (damage == QLatin1String("truncated by one byte"))
            bytes.chop(1);
        else if (damage == QLatin1String("one byte flipped"))
        {
            // In a file's entry, which a load checks: a file's markup block is checked when it is
            // read (markupKeptApartSurvivesWhateverHappensToTheIndex).
            const qsizetype at = PayloadNear(bytes, 'E', bytes.size() * 2 / 3);
            QVERIFY(at > 0);
            bytes[at + 1] = static_cast<char>(bytes.at(at + 1) ^ 0x10);
        }
        else if (damage == QLatin1String("a byte appended"))
            bytes.append('\0');
        else if (damage == QLatin1String("a later format"))
        {
            const quint32 later = CatalogueIndex::kFormatVersion + 1;
            std::memcpy(bytes.data() + CatalogueIndex::kVersionOffset, &later, sizeof later);
        }
        else if (damage == QLatin1String("foreign bytes"))
            bytes = QByteArray("<?xml version=\"1.0\"?><Workflows/>\n").repeated(40);
        else if (damage.startsWith(QLatin1String("a markup block")))
        {
            // Framed and digested as a writer frames them: only the block is out of place.
            QList<QByteArray> payloads = Payloads(bytes);
            QString key;
            qint64 scanStarted = 0;
            QVERIFY(ReadHead(payloads.takeFirst(), key, scanStarted));
            qsizetype markup = 1;
            while (markup < payloads.size() && payloads.at(markup).at(0) != 'M')
                ++markup;
            QVERIFY2(markup < payloads.size(), "no markup block");
            QCOMPARE(payloads.at(markup - 1).at(0), 'E');
            if (damage.endsWith(QLatin1String("left out")))
                payloads.removeAt(markup);
            else if (damage.endsWith(QLatin1String("longer")))
                payloads[markup].append('x');
            else
                payloads.move(markup, markup - 1);
            bytes = CatalogueIndex::Framed(key, scanStarted, payloads);
        }
        else if (damage.startsWith(QLatin1String("a file's")))
        {
            // Framed and digested as a writer frames them: only the one entry is wrong.
            QList<QByteArray> payloads = Payloads(bytes);
            QVERIFY(payloads.size() > 2);
            QString key;
            qint64 scanStarted = 0;
            QVERIFY(ReadHead(payloads.takeFirst(), key, scanStarted));
            // The first entry of a file that was read (the generator damages some files, whose
            // entries say only that they were not): its kind, its path, its identity, the flag
            // that it was read, then the units of its texts.
            const auto flagOf = [](const QByteArray& entry) {
                quint32 pathLength;
                std::memcpy(&pathLength, entry.constData() + 1, 4);
                return 1 + 4 + qsizetype(pathLength & ~0x80000000u) + 40;
            };
            qsizetype read = 0;
            for (;; ++read)
            {
                QVERIFY2(read < payloads.size() && payloads.at(read).at(0) == 'E',
                         "no entry of a file that was read");
                const QByteArray& entry = payloads.at(read);
                QVERIFY(flagOf(entry) < entry.size());
                if (entry.at(flagOf(entry)) == '\1')
                    break;
                // An entry of a file that was not read ends with that flag.
                QCOMPARE(entry.at(flagOf(entry)), '\0');
                QCOMPARE(entry.size(), flagOf(entry) + 1);
            }
            QByteArray& entry = payloads[read];
            const qsizetype flagAt = flagOf(entry);
            if (damage.startsWith(QLatin1String("a file's texts announced")))
            {
                const qint32 by = damage.endsWith(QLatin1String("short")) ? -1 : 1;
                quint32 units;
                std::memcpy(&units, entry.constData() + flagAt + 1, 4);
                units = quint32(qint64(units) + by);
                std::memcpy(entry.data() + flagAt + 1, &units, 4);
            }
            else
            {
                // The file's texts made anew, all well formed: no translation file, one element
                // "Workflow" without attributes or introduction, and settings markup "abc" in
                // UTF-16, which a writer keeps in bytes.
                const auto number = [&entry](quint32 value) {
                    entry.append(reinterpret_cast<const char*>(&value), 4);
                };
                entry.truncate(flagAt);
                entry.append('\1');
                number(9 + 4); // "Workflow" and "abc", each with its ending zero
                entry.append('\0');
                number(0xFFFFFFFFu);
                number(1);
                number(8 | 0x80000000u);
                entry.append("Workflow");
                number(0);
                entry.append('\0');
                number(0xFFFFFFFFu);
                entry.append('\1');
                number(3);
                for (const char c : {'a', 'b', 'c'})
                {
                    entry.append(c);
                    entry.append('\0');
                }
            }
            bytes = CatalogueIndex::Framed(key, scanStarted, payloads);
        }
        else if (damage == QLatin1String("another catalogue's index"))
        {
            // Written for another folder, then put in this catalogue's place.
            const QString other = m_dir.filePath(QStringLiteral("other"));
            QVERIFY(WriteFile(other + QStringLiteral("/o.workflow"),
                              WorkflowDocument(WorkflowElement(R"(Id="Other" Name="Other")"))));
            QVERIFY(SetModified(other + QStringLiteral("/o.workflow"), Old()));
            WorkflowManagerImp* imp = Imp();
            imp->SetScanUsesIndex(true);
            imp->SetWorkflowSearchPaths(other);
            const QString otherIndex =
                CatalogueIndex::FileFor({other, imp->UserWorkflowFolder()}, imp->CurrentLocale());
            bytes = ReadFile(otherIndex);
            QVERIFY(!bytes.isEmpty());
        }
        if (damage == QLatin1String("a folder"))
        {
            QVERIFY(QFile::remove(index));
            QVERIFY(QDir().mkpath(index));
        }
        else
        {
            QVERIFY(WriteFile(index, bytes));
        }
        // Every file is read again, and the catalogue is the one the files hold.
        QCOMPARE(CompareWithAndWithout("damaged"), qsizetype(24));
        if (damage == QLatin1String("a folder"))
        {
            // Nothing can be written in the folder's place; every start reads the files.
            QCOMPARE(CompareWithAndWithout("still a folder"), qsizetype(24));
            QVERIFY(QDir(index).removeRecursively());
        }
        // The index was written anew: the next start reads nothing.
        QCOMPARE(CompareWithAndWithout("rebuilt"), qsizetype(damage == QLatin1String("a folder") ? 24 : 0));
        QCOMPARE(CompareWithAndWithout("rebuilt, again"), qsizetype(0));
    }

    // A cache folder that cannot be made costs speed and nothing else.
    void unwritableCacheOnlyCostsSpeed()
    {
        Generator generator(Seed() + 3);
        MakeCatalogue(generator, 9);
        const QString blocker = m_dir.filePath(QStringLiteral("home-is-a-file"));
        QVERIFY(WriteFile(blocker, "not a folder"));
        QVERIFY(m_env.MoveHome(blocker));
        QCOMPARE(CompareWithAndWithout("no cache folder"), qsizetype(18));
        QCOMPARE(CompareWithAndWithout("no cache folder, again"), qsizetype(18));
        QVERIFY(m_env.MoveHome(m_env.StartHome()));
        QCOMPARE(CompareWithAndWithout("cache back"), qsizetype(18));
        QCOMPARE(CompareWithAndWithout("cache back, again"), qsizetype(0));
    }

    // While another program holds the index's lock, a scan leaves the writing to it.
    void aHeldLockLeavesTheIndexAlone()
    {
        Generator generator(Seed() + 4);
        MakeCatalogue(generator, 9);
        QVERIFY(QDir().mkpath(QFileInfo(IndexFile()).absolutePath()));
        QLockFile lock(IndexFile() + QStringLiteral(".lock"));
        QVERIFY(lock.tryLock(0));
        QCOMPARE(CompareWithAndWithout("locked"), qsizetype(18));
        QVERIFY(!QFileInfo::exists(IndexFile()));
        lock.unlock();
        QCOMPARE(CompareWithAndWithout("unlocked"), qsizetype(18));
        QCOMPARE(CompareWithAndWithout("unlocked, again"), qsizetype(0));
    }

    // A folder of files large enough that their index is read on a worker while the scan
    // already takes its entries; every tenth file a generated one.
    void MakeLargeCatalogue(Generator& generator, int files)
    {
        ClearCatalogue();
        QByteArray steps;
        for (int i = 0; i < 40; ++i)
            steps += "<Step Order=\"" + QByteArray::number(i) + "\" Action=\"Collect the figures\"/>";
        for (int i = 0; i < files; ++i)
        {
            const QString name = QStringLiteral("large_%1.workflow").arg(i, 3, 10, QLatin1Char('0'));
            const QByteArray id = "Large_" + QByteArray::number(i);
            QVERIFY(WriteFile(PathOf(name), i % 10 == 0 ? generator.Document(m_serial)
                                                        : WorkflowDocument(WorkflowElement(
                                                              "Id=\"" + id + "\" Name=\"" + id + "\"",
                                                              "<Settings>" + steps + "</Settings>"))));
            QVERIFY(SetModified(PathOf(name), Old(i)));
            m_names.append(name);
        }
    }

    // A large index is read on a worker while the folders are listed: the same catalogue.
    void largeIndexes_data() { AddTakingColumn(); }
    void largeIndexes()
    {
        FetchTaking();
        Generator generator(Seed() + 5);
        MakeLargeCatalogue(generator, 300);
        QCOMPARE(CompareWithAndWithout("large, first"), qsizetype(600));
        QVERIFY(QFileInfo(IndexFile()).size() > 256 * 1024);
        QCOMPARE(CompareWithAndWithout("large, again"), qsizetype(0));
        QVERIFY(WriteFile(PathOf(m_names.at(150)), generator.Document(m_serial)));
        QVERIFY(SetModified(PathOf(m_names.at(150)), Old(5000)));
        QCOMPARE(CompareWithAndWithout("large, one changed"), qsizetype(2));
        QCOMPARE(CompareWithAndWithout("large, settled"), qsizetype(0));
    }

    // The scan takes a large index's entries in the order the last scan entered its files; files
    // gone, added, renamed, replaced or hidden since then put the two orders out of step, and
    // the catalogue is still the one the files hold.
    void largeIndexesOutOfStepWithTheFolder_data() { AddTakingColumn(); }
    void largeIndexesOutOfStepWithTheFolder()
    {
        FetchTaking();
        Generator generator(Seed() + 6);
        MakeLargeCatalogue(generator, 300);
        QCOMPARE(CompareWithAndWithout("large, first"), qsizetype(600));
        for (int round = 0; round < 16; ++round)
        {
            const int victim = generator.Below(static_cast<int>(m_names.size()));
            const QString path = PathOf(m_names.at(victim));
            qsizetype expectedReads = 1;
            QByteArray step;
            switch (round % 6)
            {
            case 0:
                step = "delete";
                QVERIFY(QFile::remove(path));
                m_names.removeAt(victim);
                expectedReads = 0;
                break;
            case 1:
            {
                step = "add between two files";
                const QString added = m_names.at(victim).chopped(9) + QStringLiteral("_added.workflow");
                QVERIFY(WriteFile(PathOf(added), generator.Document(m_serial)));
                QVERIFY(SetModified(PathOf(added), Old(3000 + round)));
                m_names.append(added);
                break;
            }
            case 2:
            {
                step = "rename to the front";
                const QString renamed = QStringLiteral("a_%1.workflow").arg(round);
                QVERIFY(QFile::rename(path, PathOf(renamed)));
                m_names[victim] = renamed;
                break;
            }
            case 3:
            {
                step = "edit";
                QVERIFY(WriteFile(path, generator.Document(m_serial)));
                QVERIFY(SetModified(path, Old(4000 + round)));
                break;
            }
            case 4:
            {
                step = "hide";
                const QString hidden = QLatin1Char('.') + m_names.at(victim);
                QVERIFY(QFile::rename(path, PathOf(hidden)));
                m_names.removeAt(victim);
                expectedReads = 0;
                break;
            }
            default:
            {
                step = "replace by a folder";
                QVERIFY(QFile::remove(path));
                QVERIFY(QDir().mkpath(path));
                m_names.removeAt(victim);
                expectedReads = 0;
                break;
            }
            }
            const qsizetype read = CompareWithAndWithout(step.constData());
            QVERIFY2(read == 2 * expectedReads, ReadCount(step, read, 2 * expectedReads).constData());
            QCOMPARE(CompareWithAndWithout("out of step, again"), qsizetype(0));
        }
    }

    // A large index damaged near its end is found damaged only after the scan has taken many of
    // its entries: those were intact, nothing after them is trusted, and the index is rebuilt.
    void largeIndexDamagedNearItsEnd_data() { AddTakingColumn(); }
    void largeIndexDamagedNearItsEnd()
    {
        FetchTaking();
        Generator generator(Seed() + 7);
        MakeLargeCatalogue(generator, 300);
        QCOMPARE(CompareWithAndWithout("large, first"), qsizetype(600));
        QCOMPARE(CompareWithAndWithout("large, again"), qsizetype(0));
        QByteArray bytes = ReadFile(IndexFile());
        const qsizetype at = PayloadNear(bytes, 'E', bytes.size() - bytes.size() / 50);
        QVERIFY(at > bytes.size() / 2);
        bytes[at + 1] = static_cast<char>(bytes.at(at + 1) ^ 0x10);
        QVERIFY(WriteFile(IndexFile(), bytes));
        QVERIFY(CompareWithAndWithout("damaged near the end") > 0);
        QCOMPARE(CompareWithAndWithout("rebuilt"), qsizetype(0));
    }

    // Long markup in bytes waits in the index until a record is asked for it, each element's on
    // its own, and then reads as the file holds it; short markup and markup beyond Latin-1 are
    // held from the start.
    void longMarkupWaitsInTheIndexUntilAskedFor()
    {
        ClearCatalogue();
        QByteArray steps;
        for (int i = 0; i < 8; ++i)
            steps += "<Step Order=\"" + QByteArray::number(i) + "\" Action=\"Collect the figures\"/>";
        const QList<std::pair<QString, QByteArray>> files = {
            {QStringLiteral("long.workflow"),
             WorkflowElement(R"(Id="Long" Name="Long")", "<Settings>" + steps + "</Settings>")},
            {QStringLiteral("short.workflow"),
             WorkflowElement(R"(Id="Short" Name="Short")", "<Settings><Step Order=\"1\"/></Settings>")},
            {QStringLiteral("wide.workflow"),
             WorkflowElement(R"(Id="Wide" Name="Wide")",
                             "<Settings>" + steps + "<Note>\xe6\x97\xa5\xe6\x9c\xac</Note></Settings>")},
            {QStringLiteral("two.workflow"),
             WorkflowElement(R"(Id="First" Name="First")", "<Settings>" + steps + "<A/></Settings>") +
                 WorkflowElement(R"(Id="Second" Name="Second")", "<Settings>" + steps + "<B/></Settings>")},
        };
        for (const auto& [name, elements] : files)
        {
            QVERIFY(WriteFile(PathOf(name), WorkflowDocument(elements)));
            QVERIFY(SetModified(PathOf(name), Old()));
            m_names.append(name);
        }
        QCOMPARE(CompareWithAndWithout("first scan"), qsizetype(8));

        const auto markupById = [this](bool useIndex) {
            QMap<QString, const WorkflowFields*> records;
            WorkflowManager::Uninitialize();
            WorkflowManager::Initialize();
            Imp()->SetScanUsesIndex(useIndex);
            Imp()->SetCurrentLocale(QStringLiteral("en-US"));
            Imp()->SetWorkflowSearchPaths(m_folder + QLatin1Char(';') + m_folder);
            for (Workflow* workflow : Imp()->Catalogue())
            {
                const WorkflowFields& fields = ImpOf(workflow)->Fields();
                if (!records.contains(fields.Id))
                    records.insert(fields.Id, &fields);
            }
            return records;
        };
        QMap<QString, QString> expected;
        for (const auto& [id, fields] : markupById(false).asKeyValueRange())
        {
            QVERIFY(!fields->Settings.IsWaiting());
            expected.insert(id, fields->Settings.ToString());
        }
        const QMap<QString, const WorkflowFields*> records = markupById(true);
        QCOMPARE(Imp()->LastScanFilesRead(), qsizetype(0));
        QCOMPARE(records.keys(), expected.keys());
        QVERIFY(records.value(QStringLiteral("Long"))->Settings.IsWaiting());
        QVERIFY(records.value(QStringLiteral("First"))->Settings.IsWaiting());
        QVERIFY(records.value(QStringLiteral("Second"))->Settings.IsWaiting());
        QVERIFY(!records.value(QStringLiteral("Short"))->Settings.IsWaiting());
        QVERIFY(!records.value(QStringLiteral("Wide"))->Settings.IsWaiting());
        QVERIFY(!records.value(QStringLiteral("Wide"))->Settings.IsNarrow());

        // One element's markup read leaves its neighbour's waiting.
        QCOMPARE(records.value(QStringLiteral("First"))->Settings.ToString(),
                 expected.value(QStringLiteral("First")));
        QVERIFY(!records.value(QStringLiteral("First"))->Settings.IsWaiting());
        QVERIFY(records.value(QStringLiteral("Second"))->Settings.IsWaiting());
        for (const auto& [id, fields] : records.asKeyValueRange())
        {
            QCOMPARE(fields->Settings.ToString(), expected.value(id));
            QVERIFY(!fields->Settings.IsWaiting());
        }
        QVERIFY(records.value(QStringLiteral("Long"))->Settings.IsNarrow());
        QVERIFY(records.value(QStringLiteral("Long"))->Settings.size() >=
                CatalogueIndex::kDeferredMarkupMinimum);
        // The copy a record takes of another shares its markup, and a changed markup is its own.
        WorkflowFields copy = *records.value(QStringLiteral("Second"));
        QCOMPARE(copy.Settings, records.value(QStringLiteral("Second"))->Settings);
        copy.Settings = QStringLiteral("<Changed/>");
        QCOMPARE(copy.Settings.ToString(), QStringLiteral("<Changed/>"));
        QCOMPARE(records.value(QStringLiteral("Second"))->Settings.ToString(),
                 expected.value(QStringLiteral("Second")));
    }

    // Records made at a start keep the index they were loaded from open: whatever happens to the
    // index file afterwards, each reads its markup as the files hold it. Markup found damaged is
    // read from its workflow file, and the index it came from is dropped and written anew.
    void markupKeptApartSurvivesWhateverHappensToTheIndex_data()
    {
        QTest::addColumn<QString>("what");
        for (const char* what :
             {"a markup byte flipped in place", "truncated in place", "deleted", "replaced by a later scan"})
            QTest::newRow(what) << QString::fromLatin1(what);
    }
    void markupKeptApartSurvivesWhateverHappensToTheIndex()
    {
        QFETCH(QString, what);
        Generator generator(Seed() + 8);
        MakeCatalogue(generator, 12);
        const QString index = IndexFile();
        QCOMPARE(CompareWithAndWithout("first scan"), qsizetype(24));
        const Scan plain = ScanOnce(false);

        // A start the index answers for, whose records are kept past the manager's end.
        WorkflowManager::Uninitialize();
        QVERIFY(WorkflowManager::Initialize());
        Imp()->SetScanUsesIndex(true);
        Imp()->SetCurrentLocale(QStringLiteral("en-US"));
        Imp()->SetWorkflowSearchPaths(m_folder + QLatin1Char(';') + m_folder);
        QCOMPARE(Imp()->LastScanFilesRead(), qsizetype(0));
        QList<WorkflowFields> kept;
        int waiting = 0;
        for (Workflow* workflow : Imp()->Catalogue())
        {
            kept.append(ImpOf(workflow)->Fields());
            waiting += kept.last().Settings.IsWaiting() ? 1 : 0;
        }
        QVERIFY(waiting > 0);
        WorkflowManager::Uninitialize();
        QVERIFY(WorkflowManager::Initialize());

        QByteArray bytes = ReadFile(index);
        const qsizetype markup = PayloadNear(bytes, 'M', bytes.size() / 2);
        QVERIFY(markup > 0);
        qsizetype damagedFiles = 0;
        for (const auto& block : Blocks(bytes))
            damagedFiles += block.second == 'M' ? 1 : 0;
        qsizetype expectedNext = 0;
        if (what == QLatin1String("a markup byte flipped in place"))
        {
            // In every markup block: a block may belong to a workflow the catalogue dropped as an
            // orphan, whose markup nobody asks for.
            QFile file(index);
            QVERIFY(file.open(QIODevice::ReadWrite));
            for (const auto& [at, kind] : Blocks(bytes))
            {
                if (kind != 'M')
                    continue;
                QVERIFY(file.seek(at + 12 + 3));
                const char flipped = static_cast<char>(bytes.at(at + 12 + 3) ^ 0x10);
                QCOMPARE(file.write(&flipped, 1), qint64(1));
            }
        }
        else if (what == QLatin1String("truncated in place"))
        {
            QVERIFY(QFile::resize(index, markup + 3));
            expectedNext = 24;
        }
        else if (what == QLatin1String("deleted"))
        {
            QVERIFY(QFile::remove(index));
            expectedNext = 24;
        }
        else
        {
            const QString path = PathOf(m_names.at(5));
            QVERIFY(WriteFile(path, ReadFile(path) + "\n"));
            QVERIFY(SetModified(path, Old(500)));
            QVERIFY(CompareWithAndWithout("one file changed") >= 0);
            QVERIFY(QFileInfo::exists(index));
            QVERIFY(ReadFile(index) != bytes);
        }
        QCOMPARE(kept.size(), plain.records.size());
        for (qsizetype i = 0; i < kept.size(); ++i)
            QCOMPARE(Described(kept.at(i)), plain.records.at(i));
        kept.clear();

        if (what == QLatin1String("a markup byte flipped in place"))
        {
            // The damaged blocks were only found by records of the start before: the next start
            // takes the entries (the folder's second listing gets the same data) and reads no
            // file, finds the blocks damaged as its records ask for their markup, reads that
            // markup from the workflow files, and drops the index.
            QVERIFY(damagedFiles > 0);
            QCOMPARE(CompareWithAndWithout("damaged markup found"), qsizetype(0));
            QVERIFY(!QFileInfo::exists(index));
            expectedNext = 24;
        }
        QCOMPARE(CompareWithAndWithout("next start"), expectedNext);
        QCOMPARE(CompareWithAndWithout("settled"), qsizetype(0));
    }

    // The sample workflows shipped with the library, with their translations in every locale.
    void sampleWorkflows()
    {
        const QString samples = QStringLiteral(VMWF_SOURCE_DIR "/share/workflows/templates");
        QVERIFY(QFileInfo(samples).isDir());
        QDir(m_folder).removeRecursively();
        QDirIterator it(samples, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext())
        {
            const QString from = it.next();
            const QString to = m_folder + from.mid(samples.size());
            QVERIFY(WriteFile(to, ReadFile(from)));
            QVERIFY(SetModified(to, Old()));
        }
        for (const QString& locale :
             {QStringLiteral("en-US"), QStringLiteral("de-DE"), QStringLiteral("fr-FR")})
        {
            QVERIFY(CompareWithAndWithout("samples, first", locale) > 0);
            QCOMPARE(CompareWithAndWithout("samples, again", locale), qsizetype(0));
        }
    }
};

QTEST_GUILESS_MAIN(tst_CatalogueIndex)
#include "tst_catalogueindex.moc"
