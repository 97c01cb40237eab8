// SPDX-License-Identifier: MIT
// The analytics library on its own: what a reached waypoint leaves in the log file.

#include <Kv7/Kv7Shim.h>
#include <Kv7/Tlm.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

using namespace Velmora::Kv7;

namespace {

const WideChar* W(const QString& text)
{
    return reinterpret_cast<const WideChar*>(text.utf16());
}

QList<QJsonObject> ReadLines(const QString& path)
{
    QList<QJsonObject> lines;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return lines;
    for (const QByteArray& line : file.readAll().split('\n'))
    {
        if (!line.isEmpty())
            lines.append(QJsonDocument::fromJson(line).object());
    }
    return lines;
}

} // namespace

class tst_Kv7 : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_dir.isValid());
        m_log = m_dir.filePath(QStringLiteral("kv7.log"));
        QFile::remove(m_log);
        qputenv("KV7_LOG_FILE", QFile::encodeName(m_log));
    }

    void waypointIsOneLineWithAttributesInOrder()
    {
        const QString text = QStringLiteral("välue \"quoted\"");
        TlmWaypoint* waypoint = TlmWaypoint::Create(W(QStringLiteral("W.ONE")));
        TlmState* state = TlmState::Create(W(QStringLiteral("W.ONE_STATE")));
        state->AddAttribute(TlmAttribute::Create(W(QStringLiteral("B")), W(text)));
        state->AddAttribute(TlmAttribute::Create(W(QStringLiteral("A")), true));
        state->AddAttribute(TlmAttribute::Create(W(QStringLiteral("C")), W(QString())));
        state->AddAttribute(TlmAttribute::Create(W(QStringLiteral("D")), false));
        state->AddAttribute(nullptr);
        QCOMPARE(state->GetAttributeCount(), 4);
        waypoint->AddState(state);
        TlmFacade::WaypointReached(waypoint);

        const QList<QJsonObject> lines = ReadLines(m_log);
        QCOMPARE(lines.size(), 1);
        QCOMPARE(lines.at(0).value(QStringLiteral("waypoint")).toString(), QStringLiteral("W.ONE"));
        const QJsonArray states = lines.at(0).value(QStringLiteral("states")).toArray();
        QCOMPARE(states.size(), 1);
        QCOMPARE(states.at(0).toObject().value(QStringLiteral("name")).toString(),
                 QStringLiteral("W.ONE_STATE"));
        const QJsonArray attributes = states.at(0).toObject().value(QStringLiteral("attributes")).toArray();
        QCOMPARE(attributes.size(), 4);
        QCOMPARE(attributes.at(0).toObject().value(QStringLiteral("name")).toString(), QStringLiteral("B"));
        QCOMPARE(attributes.at(0).toObject().value(QStringLiteral("value")), QJsonValue(text));
        QCOMPARE(attributes.at(1).toObject().value(QStringLiteral("name")).toString(), QStringLiteral("A"));
        QCOMPARE(attributes.at(1).toObject().value(QStringLiteral("value")), QJsonValue(true));
        QCOMPARE(attributes.at(2).toObject().value(QStringLiteral("value")), QJsonValue(QString()));
        QCOMPARE(attributes.at(3).toObject().value(QStringLiteral("value")), QJsonValue(false));
    }

    void eachWaypointAppendsALine()
    {
        for (int i = 0; i < 3; ++i)
        {
            TlmWaypoint* waypoint = Kv7CreateWaypoint(W(QStringLiteral("W.%1").arg(i)));
            TlmState* state = Kv7CreateState(W(QStringLiteral("S")));
            state->AddAttribute(Kv7CreateTextAttribute(W(QStringLiteral("T")), W(QString::number(i))));
            state->AddAttribute(Kv7CreateBoolAttribute(W(QStringLiteral("F")), i % 2 == 1));
            waypoint->AddState(state);
            Kv7WaypointReached(waypoint);
        }
        const QList<QJsonObject> lines = ReadLines(m_log);
        QCOMPARE(lines.size(), 3);
        for (int i = 0; i < 3; ++i)
        {
            QCOMPARE(lines.at(i).value(QStringLiteral("waypoint")).toString(), QStringLiteral("W.%1").arg(i));
            const QJsonArray attributes = lines.at(i)
                                              .value(QStringLiteral("states"))
                                              .toArray()
                                              .at(0)
                                              .toObject()
                                              .value(QStringLiteral("attributes"))
                                              .toArray();
            QCOMPARE(attributes.at(0).toObject().value(QStringLiteral("value")).toString(),
                     QString::number(i));
            QCOMPARE(attributes.at(1).toObject().value(QStringLiteral("value")).toBool(), i % 2 == 1);
        }
    }

    void unsetLogFileWritesNothing()
    {
        qunsetenv("KV7_LOG_FILE");
        TlmWaypoint* waypoint = TlmWaypoint::Create(W(QStringLiteral("W")));
        waypoint->AddState(TlmState::Create(W(QStringLiteral("S"))));
        TlmFacade::WaypointReached(waypoint);
        TlmFacade::WaypointReached(nullptr);
        QVERIFY(!QFile::exists(m_log));
        QCOMPARE(QDir(m_dir.path()).entryList(QDir::Files), QStringList());
    }

private:
    QTemporaryDir m_dir;
    QString m_log;
};

QTEST_GUILESS_MAIN(tst_Kv7)
#include "tst_kv7.moc"
