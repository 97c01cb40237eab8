// SPDX-License-Identifier: MIT
// The settings file at the scale of a catalogue: a batch of writes leaves the file exactly as the
// single writes would have, writes nothing when nothing changes, never touches a damaged file;
// a read session answers from what it read first, with the store's own writes in view.

#include "platform/Platform.h"
#include "workflow/WorkflowSettings.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"

#include <QDateTime>
#include <QRandomGenerator>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

using Settings = QHash<QString, QHash<QString, QString>>;

quint32 Seed()
{
    static const quint32 seed = [] {
        bool ok = false;
        const quint32 fromEnvironment = qEnvironmentVariable("VMWF_SETTINGS_SEED").toUInt(&ok);
        return ok ? fromEnvironment : 20261124u;
    }();
    return seed;
}

struct WriteStep
{
    QString id;
    QString key;
    QString value;
};

// Ids that differ only in case, hold markup characters and white space, or nothing at all; one
// holds a character no file holds.
const QStringList kIds = {QStringLiteral("Id_A"), QStringLiteral("id_a"), QStringLiteral("ID_A"),
                          QStringLiteral("Id_B"), QStringLiteral("Id &<>\"' quoted"),
                          QStringLiteral("  spaced\tid "), QStringLiteral("Ünïcødé-€"),
                          QStringLiteral("Id_Dup"), QStringLiteral("Id_Foreign"), QString(),
                          // No file holds the character: the Id matches no element, ever.
                          QStringLiteral("Id_A") + QChar(0x1)};

// Mostly the keys a host writes; now and then one only the document's way writes as asked.
const QStringList kKeys = {QStringLiteral("ShowIntroductionOnExecute"),
                           QStringLiteral("ShowIntroductionOnExecute"),
                           QStringLiteral("K"),
                           QStringLiteral("k"),
                           QStringLiteral("Layout"),
                           QStringLiteral("Last.Page-2"),
                           QStringLiteral("Extra")};
const QStringList kRareKeys = {QStringLiteral("Id"), QStringLiteral("p:q")};

const QStringList kValues = {QStringLiteral("True"),
                             QStringLiteral("False"),
                             QString(),
                             QStringLiteral(" "),
                             QStringLiteral("a & b"),
                             QStringLiteral("<tag attr=\"x\">"),
                             QStringLiteral("it's \"quoted\""),
                             QStringLiteral("\ttab and  spaces "),
                             QStringLiteral("line\nbreak"),
                             QStringLiteral("cr\r\nlf"),
                             QStringLiteral("]]>"),
                             QStringLiteral("&amp; &#x41; as text"),
                             QStringLiteral("Ünïcødé € \U0001D11E")};

// Starting files: none, the writer's own layout, and hand-made ones with foreign content.
QByteArray StartingFile(int kind)
{
    switch (kind)
    {
    case 0:
        return QByteArray();
    case 1:
        return "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows>\n"
               "        <Workflow Id=\"Id_A\" ShowIntroductionOnExecute=\"True\" K=\"a &amp; &lt;b&gt;\"/>\n"
               "        <Workflow Id=\"id_a\" ShowIntroductionOnExecute=\"False\"/>\n"
               "        <Workflow Id=\"Id_Dup\" K=\"first\"/>\n"
               "        <Workflow Id=\"Id_Dup\" K=\"second\"/>\n"
               "        <Workflow Id=\"\" K=\"empty id\"/>\n"
               "    </Workflows>\n</WorkflowSettings>\n";
    case 2:
        // Plain in shape but written by hand: another declaration, line ends and references.
        return "<?xml version='1.0' encoding='UTF-8'?>\r\n<WorkflowSettings><Workflows>\r\n"
               "<Workflow K='single &apos;quoted&apos;' Id='Id_B' "
               "Layout=\"&#x9;tab&#10;line\"></Workflow>\r\n"
               "<Workflow Id=\"\xC3\x9C\x6E\xC3\xAF\x63\xC3\xB8\x64\xC3\xA9-\xE2\x82\xAC\" K=\"x\"/>"
               "</Workflows></WorkflowSettings>";
    case 3:
        // Foreign elements, attributes, comments, instructions and text that must all survive.
        return "<?xml version=\"1.0\"?>\n<!-- kept by hand -->\n<WorkflowSettings Version=\"2\">\n"
               "  <Workflows>\n"
               "    <Note>not a workflow</Note>\n"
               "    <Workflow Id=\"Id_A\" Foreign=\"yes\" "
               "ShowIntroductionOnExecute=\"False\"><Child/></Workflow>\n"
               "    <!-- between -->\n"
               "    <Other Id=\"Id_Foreign\" K=\"other element\"/>\n"
               "    <?tool data?>\n"
               "    <Workflow Id=\"Id_Dup\" p:q=\"prefixed\" K=\"1\"/>\n"
               "    <Workflow Id=\"Id_Dup\" K=\"2\"/>\n"
               "    <Workflow K=\"no id\"/>\n"
               "  </Workflows>\n"
               "  <Workflows><Workflow Id=\"Id_B\" K=\"second list\"/></Workflows>\n"
               "</WorkflowSettings>\n";
    default:
        // A root of another name: the settings go below it.
        return "<Other><Workflows><Workflow Id=\"Id_A\" K=\"under another root\"/></Workflows></Other>";
    }
}
const int kStartingFiles = 5;

QList<WriteStep> RandomWrites(QRandomGenerator& random)
{
    QList<WriteStep> steps;
    const int count = 1 + random.bounded(40);
    for (int i = 0; i < count; ++i)
    {
        if (!steps.isEmpty() && random.bounded(5) == 0)
        {
            // A repeat: the same write again, or the same setting with another value.
            WriteStep step = steps.at(random.bounded(static_cast<int>(steps.size())));
            if (random.bounded(2) == 0)
                step.value = kValues.at(random.bounded(static_cast<int>(kValues.size())));
            steps.append(step);
            continue;
        }
        WriteStep step;
        step.id = kIds.at(random.bounded(static_cast<int>(kIds.size())));
        step.key = random.bounded(25) == 0 ? kRareKeys.at(random.bounded(static_cast<int>(kRareKeys.size())))
                                           : kKeys.at(random.bounded(static_cast<int>(kKeys.size())));
        step.value = kValues.at(random.bounded(static_cast<int>(kValues.size())));
        if (random.bounded(30) == 0)
            step.value += QChar(0x1); // no XML file holds it: the writers drop it
        steps.append(step);
    }
    return steps;
}

bool PutFile(const QString& path, const QByteArray& bytes)
{
    QFile::remove(path);
    return bytes.isNull() || WriteFile(path, bytes);
}

// Gives the file a modification time of its own, so that a change is seen however fast it came.
bool Touch(const QString& path, int second)
{
    QFile file(path);
    return file.open(QIODevice::ReadWrite) &&
           file.setFileTime(QDateTime(QDate(2021, 3, 1), QTime(0, 0)).addSecs(second),
                            QFileDevice::FileModificationTime);
}

QString Describe(const QList<WriteStep>& steps)
{
    QStringList lines;
    for (const WriteStep& step : steps)
        lines.append(QStringLiteral("[%1].%2=[%3]").arg(step.id, step.key, step.value));
    return lines.join(QLatin1Char('\n'));
}

} // namespace

class tst_SettingsBatch : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    QString File() const { return WorkflowSettingsFile(); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        std::printf("seed %u (set VMWF_SETTINGS_SEED to repeat another)\n", Seed());
        std::fflush(stdout);
    }
    void init()
    {
        QVERIFY(m_env.MoveHome(m_env.StartHome()));
        QDir(m_env.DataHome() + QStringLiteral("/Velmora")).removeRecursively();
        QVERIFY(!File().isEmpty());
        QVERIFY(QDir().mkpath(WorkflowSettingsFolder()));
    }

    // The same writes once one by one and once in one batch, from copies of the same file, read
    // back the same; the batch's own reads see its writes as they are made.
    void batchLeavesWhatSingleWritesLeave()
    {
        QRandomGenerator random(Seed());
        int rewritten = 0;
        for (int round = 0; round < 300; ++round)
        {
            const int kind = round % kStartingFiles;
            const QByteArray start = StartingFile(kind);
            const QList<WriteStep> steps = RandomWrites(random);
            const QString context = QStringLiteral("round %1, starting file %2, writes:\n%3")
                                        .arg(round)
                                        .arg(kind)
                                        .arg(Describe(steps));

            QVERIFY(PutFile(File(), start));
            Settings single;
            bool singleReadable = false;
            {
                WorkflowSettingsStore store;
                // Half of the time the store has read the file first, and keeps what it read
                // current with its own writes.
                if (round % 2 == 1)
                    store.Read(QStringLiteral("Id_A"), QStringLiteral("K"));
                for (const WriteStep& step : steps)
                    store.Write(step.id, step.key, step.value);
                singleReadable = ReadWorkflowSettingsFile(File(), single, true);
                for (const WriteStep& step : steps)
                {
                    QVERIFY2(store.Read(step.id, step.key) == single.value(step.id).value(step.key),
                             qPrintable(context));
                }
            }
            const QByteArray singleBytes = ReadFile(File());

            QVERIFY(PutFile(File(), start));
            {
                WorkflowSettingsStore store;
                // A store that has read the file already, as the manager's has, half of the time.
                if (round % 2 == 0)
                    store.Read(QStringLiteral("Id_A"), QStringLiteral("K"));
                WorkflowSettingsStore::Batch batch(store);
                WorkflowSettingsStore::Batch inner(store);
                for (const WriteStep& step : steps)
                {
                    store.Write(step.id, step.key, step.value);
                    // Read as the file will give it back: without the character no file holds.
                    // and nothing under an Id that holds it.
                    if (step.key != QLatin1String("Id") && !step.key.contains(QLatin1Char(':')))
                    {
                        const QString expected =
                            step.id.contains(QChar(0x1)) ? QString() : QString(step.value).remove(QChar(0x1));
                        QVERIFY2(store.Read(step.id, step.key) == expected, qPrintable(context));
                    }
                }
            }
            Settings batched;
            const bool batchReadable = ReadWorkflowSettingsFile(File(), batched, true);
            QVERIFY2(singleReadable == batchReadable, qPrintable(context));
            QVERIFY2(single == batched,
                     qPrintable(context + QStringLiteral("\nsingle writes left:\n") +
                                QString::fromUtf8(singleBytes) + QStringLiteral("\nthe batch left:\n") +
                                QString::fromUtf8(ReadFile(File()))));
            // The streaming reader reads what the batch wrote as the document reader does.
            Settings streamed;
            QVERIFY2(ReadWorkflowSettingsFile(File(), streamed, false), qPrintable(context));
            QVERIFY2(streamed == batched, qPrintable(context));
            // A fresh store reads each setting back as written.
            WorkflowSettingsStore fresh;
            for (auto it = batched.cbegin(); it != batched.cend(); ++it)
            {
                for (auto value = it->cbegin(); value != it->cend(); ++value)
                    QVERIFY2(fresh.Read(it.key(), value.key()) == value.value(), qPrintable(context));
            }
            rewritten += ReadFile(File()) != start ? 1 : 0;
        }
        QVERIFY(rewritten > 250);
    }

    // Thousands of writes through the batch, against the same through single writes on a copy.
    void largeBatchOnTheWritersOwnFile()
    {
        QRandomGenerator random(Seed() + 1);
        QByteArray start;
        {
            WorkflowSettingsStore store;
            WorkflowSettingsStore::Batch batch(store);
            for (int i = 0; i < 300; ++i)
                store.Write(QStringLiteral("Id_%1").arg(i), QStringLiteral("ShowIntroductionOnExecute"),
                            i % 2 ? QStringLiteral("True") : QStringLiteral("False"));
        }
        start = ReadFile(File());
        QVERIFY(start.contains("Id_299"));
        QList<WriteStep> steps;
        for (int i = 0; i < 400; ++i)
        {
            const int n = random.bounded(350);
            steps.append({n % 7 == 0 ? QStringLiteral("id_%1").arg(n) : QStringLiteral("Id_%1").arg(n),
                          kKeys.at(random.bounded(static_cast<int>(kKeys.size()))),
                          kValues.at(random.bounded(static_cast<int>(kValues.size())))});
        }
        {
            WorkflowSettingsStore store;
            for (const WriteStep& step : steps)
                store.Write(step.id, step.key, step.value);
        }
        Settings single;
        QVERIFY(ReadWorkflowSettingsFile(File(), single, true));
        QVERIFY(PutFile(File(), start));
        {
            WorkflowSettingsStore store;
            WorkflowSettingsStore::Batch batch(store);
            for (const WriteStep& step : steps)
                store.Write(step.id, step.key, step.value);
        }
        Settings batched;
        QVERIFY(ReadWorkflowSettingsFile(File(), batched, true));
        QCOMPARE(batched.size(), single.size());
        QVERIFY(batched == single);
    }

    // Every value already there: the file is not written at all, not even replaced by itself.
    void unchangedValuesWriteNothing()
    {
        {
            WorkflowSettingsStore store;
            WorkflowSettingsStore::Batch batch(store);
            for (int i = 0; i < 200; ++i)
                store.Write(QStringLiteral("Id_%1").arg(i), QStringLiteral("ShowIntroductionOnExecute"),
                            i % 3 ? QStringLiteral("True") : QStringLiteral("False"));
            store.Write(QStringLiteral("Id_7"), QStringLiteral("Layout"), QStringLiteral("a & \"b\"\n"));
        }
        QVERIFY(Touch(File(), 1));
        const QByteArray bytes = ReadFile(File());
        struct stat before;
        QCOMPARE(::stat(QFile::encodeName(File()).constData(), &before), 0);
        for (const bool warm : {false, true})
        {
            {
                WorkflowSettingsStore store;
                if (warm)
                    QCOMPARE(store.Read(QStringLiteral("Id_3"), QStringLiteral("ShowIntroductionOnExecute")),
                             QStringLiteral("False"));
                WorkflowSettingsStore::Batch batch(store);
                for (int i = 199; i >= 0; --i)
                    store.Write(QStringLiteral("Id_%1").arg(i), QStringLiteral("ShowIntroductionOnExecute"),
                                i % 3 ? QStringLiteral("True") : QStringLiteral("False"));
                // A value changed and changed back within the batch is no change either.
                store.Write(QStringLiteral("Id_7"), QStringLiteral("Layout"), QStringLiteral("other"));
                store.Write(QStringLiteral("Id_7"), QStringLiteral("Layout"), QStringLiteral("a & \"b\"\n"));
            }
            struct stat after;
            QCOMPARE(::stat(QFile::encodeName(File()).constData(), &after), 0);
            QCOMPARE(after.st_ino, before.st_ino);
            QCOMPARE(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
            QCOMPARE(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
        }
        QCOMPARE(ReadFile(File()), bytes);

        // One value more, and the file is written.
        {
            WorkflowSettingsStore store;
            WorkflowSettingsStore::Batch batch(store);
            store.Write(QStringLiteral("Id_5"), QStringLiteral("ShowIntroductionOnExecute"),
                        QStringLiteral("False"));
        }
        QVERIFY(ReadFile(File()) != bytes);
        QCOMPARE(
            WorkflowSettingsStore().Read(QStringLiteral("Id_5"), QStringLiteral("ShowIntroductionOnExecute")),
            QStringLiteral("False"));
    }

    // A file that is there but cannot be parsed is the user's data: a batch leaves it byte for byte.
    void damagedFileIsLeftAsItIs()
    {
        const QList<QByteArray> damaged = {
            "<WorkflowSettings><Workflows><Workflow Id=\"Id_A\" K=\"v\"></Workflows>",
            "<?xml version=\"1.0\"?>\n<WorkflowSettings>\n    <Workflows>\n        <Workflow Id=\"Id_A\" "
            "K=\"v\"/>\n",
            "<WorkflowSettings><Workflows><Workflow Id=\"Id_A\" Id=\"Id_B\"/></Workflows></WorkflowSettings>",
            "<WorkflowSettings><Workflows><Workflow Id=\"a&b\"/></Workflows></WorkflowSettings>",
            QByteArray("<WorkflowSettings>\0</WorkflowSettings>", 37),
            "not xml at all"};
        for (const QByteArray& bytes : damaged)
        {
            // Cold and warm stores, with writes the settings writer takes and with one that goes
            // the document's way.
            for (const int variant : {0, 1, 2, 3})
            {
                const bool warm = variant % 2 == 1;
                QVERIFY(PutFile(File(), bytes));
                WorkflowSettingsStore store;
                if (warm)
                    QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QString());
                {
                    WorkflowSettingsStore::Batch batch(store);
                    store.Write(QStringLiteral("Id_A"), QStringLiteral("K"), QStringLiteral("new"));
                    store.Write(QStringLiteral("Id_N"), QStringLiteral("ShowIntroductionOnExecute"),
                                QStringLiteral("True"));
                    if (variant >= 2)
                        store.Write(QStringLiteral("Id_N"), QStringLiteral("p:q"),
                                    QStringLiteral("document's way"));
                }
                QCOMPARE(ReadFile(File()), bytes);
                QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QString());
            }
        }
    }

    // A file the batch cannot read for want of rights is not replaced either.
    void unreadableFileIsLeftAsItIs()
    {
        if (::geteuid() == 0)
            QSKIP("root reads every file");
        const QByteArray bytes("<WorkflowSettings><Workflows/></WorkflowSettings>");
        QVERIFY(PutFile(File(), bytes));
        QVERIFY(QFile::setPermissions(File(), QFileDevice::WriteOwner));
        {
            WorkflowSettingsStore store;
            WorkflowSettingsStore::Batch batch(store);
            store.Write(QStringLiteral("Id_A"), QStringLiteral("K"), QStringLiteral("v"));
        }
        QVERIFY(QFile::setPermissions(File(), QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        QCOMPARE(ReadFile(File()), bytes);
    }

    // The batch's rewrite keeps the file's permissions, as every save does.
    void rewriteKeepsPermissions()
    {
        QVERIFY(PutFile(File(), StartingFile(1)));
        const QFileDevice::Permissions kept = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                              QFileDevice::ReadGroup | QFileDevice::ReadOther;
        QVERIFY(QFile::setPermissions(File(), kept));
        {
            WorkflowSettingsStore store;
            WorkflowSettingsStore::Batch batch(store);
            store.Write(QStringLiteral("Id_New"), QStringLiteral("K"), QStringLiteral("v"));
        }
        QCOMPARE(WorkflowSettingsStore().Read(QStringLiteral("Id_New"), QStringLiteral("K")),
                 QStringLiteral("v"));
        QCOMPARE(QFileInfo(File()).permissions() &
                     ~(QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser),
                 kept);
    }

    // Outside a session every read follows the file.
    void readsOutsideASessionFollowTheFile()
    {
        QVERIFY(PutFile(File(), "<WorkflowSettings><Workflows><Workflow Id=\"Id_A\" K=\"1\"/></Workflows>"
                                "</WorkflowSettings>"));
        WorkflowSettingsStore store;
        QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QStringLiteral("1"));
        QVERIFY(PutFile(File(), "<WorkflowSettings><Workflows><Workflow Id=\"Id_A\" K=\"22\"/></Workflows>"
                                "</WorkflowSettings>"));
        QVERIFY(Touch(File(), 2));
        QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QStringLiteral("22"));
    }

    // A session answers from the file as its first read found it; the change from outside shows
    // once the last session ends.
    void sessionKeepsWhatItFirstRead()
    {
        QVERIFY(PutFile(File(), "<WorkflowSettings><Workflows><Workflow Id=\"Id_A\" K=\"1\"/></Workflows>"
                                "</WorkflowSettings>"));
        WorkflowSettingsStore store;
        {
            WorkflowSettingsStore::ReadSession session(store);
            QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QStringLiteral("1"));
            {
                WorkflowSettingsStore::ReadSession inner(store);
                QVERIFY(PutFile(File(), "<WorkflowSettings><Workflows><Workflow Id=\"Id_A\" K=\"22\"/>"
                                        "<Workflow Id=\"Id_C\" K=\"3\"/></Workflows></WorkflowSettings>"));
                QVERIFY(Touch(File(), 3));
                QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QStringLiteral("1"));
            }
            QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QStringLiteral("1"));
            QCOMPARE(store.Read(QStringLiteral("Id_C"), QStringLiteral("K")), QString());
        }
        QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QStringLiteral("22"));
        QCOMPARE(store.Read(QStringLiteral("Id_C"), QStringLiteral("K")), QStringLiteral("3"));
    }

    // Nor does a session follow the user's data folder once it has read.
    void sessionKeepsItsFile()
    {
        QVERIFY(PutFile(File(), "<WorkflowSettings><Workflows><Workflow Id=\"Id_A\" K=\"first home\"/>"
                                "</Workflows></WorkflowSettings>"));
        WorkflowSettingsStore store;
        {
            WorkflowSettingsStore::ReadSession session(store);
            QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QStringLiteral("first home"));
            QVERIFY(m_env.MoveHome(m_env.Root() + QStringLiteral("/other-home")));
            QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QStringLiteral("first home"));
        }
        QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QString());
        QVERIFY(m_env.MoveHome(m_env.StartHome()));
        QCOMPARE(store.Read(QStringLiteral("Id_A"), QStringLiteral("K")), QStringLiteral("first home"));
    }

    // The store's own writes, single or batched, are seen by the reads of a session.
    void sessionSeesItsOwnWrites()
    {
        for (const bool fileAtStart : {false, true})
        {
            QVERIFY(PutFile(File(), fileAtStart ? StartingFile(1) : QByteArray()));
            WorkflowSettingsStore store;
            WorkflowSettingsStore::ReadSession session(store);
            QCOMPARE(store.Read(QStringLiteral("Id_N"), QStringLiteral("K")), QString());
            store.Write(QStringLiteral("Id_N"), QStringLiteral("K"), QStringLiteral("single"));
            QCOMPARE(store.Read(QStringLiteral("Id_N"), QStringLiteral("K")), QStringLiteral("single"));
            store.Write(QStringLiteral("Id_N"), QStringLiteral("p:q"), QStringLiteral("document's way"));
            QCOMPARE(store.Read(QStringLiteral("Id_N"), QStringLiteral("p:q")),
                     QStringLiteral("document's way"));
            {
                WorkflowSettingsStore::Batch batch(store);
                store.Write(QStringLiteral("Id_N"), QStringLiteral("K"), QStringLiteral("batched"));
                store.Write(QStringLiteral("Id_M"), QStringLiteral("K"), QStringLiteral("new & <b>"));
                QCOMPARE(store.Read(QStringLiteral("Id_N"), QStringLiteral("K")), QStringLiteral("batched"));
                QCOMPARE(store.Read(QStringLiteral("Id_M"), QStringLiteral("K")),
                         QStringLiteral("new & <b>"));
            }
            QCOMPARE(store.Read(QStringLiteral("Id_N"), QStringLiteral("K")), QStringLiteral("batched"));
            QCOMPARE(store.Read(QStringLiteral("Id_M"), QStringLiteral("K")), QStringLiteral("new & <b>"));
            QCOMPARE(store.Read(QStringLiteral("Id_N"), QStringLiteral("p:q")),
                     QStringLiteral("document's way"));
            if (fileAtStart)
                QCOMPARE(store.Read(QStringLiteral("id_a"), QStringLiteral("ShowIntroductionOnExecute")),
                         QStringLiteral("False"));
            // And the file holds what the session reads.
            WorkflowSettingsStore other;
            QCOMPARE(other.Read(QStringLiteral("Id_N"), QStringLiteral("K")), QStringLiteral("batched"));
            QCOMPARE(other.Read(QStringLiteral("Id_M"), QStringLiteral("K")), QStringLiteral("new & <b>"));
        }
    }
};

QTEST_GUILESS_MAIN(tst_SettingsBatch)
#include "tst_settingsbatch.moc"
