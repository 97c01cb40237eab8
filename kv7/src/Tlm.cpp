// SPDX-License-Identifier: MIT
#include <Kv7/Tlm.h>

#include <QByteArray>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <memory>

namespace Velmora::Kv7 {

namespace {

QString FromWide(const WideChar* text)
{
    return text ? QString::fromUtf16(reinterpret_cast<const char16_t*>(text)) : QString();
}

const WideChar* ToWide(const QString& text)
{
    return reinterpret_cast<const WideChar*>(text.utf16());
}

} // namespace

struct TlmAttribute::Data
{
    QString name;
    QString text;
    bool isBool = false;
    bool value = false;
};

struct TlmState::Data
{
    QString name;
    QList<TlmAttribute*> attributes;
};

struct TlmWaypoint::Data
{
    QString name;
    QList<TlmState*> states;
};

TlmAttribute::TlmAttribute(const WideChar* name, const WideChar* text, bool isBool, bool value)
    : d(new Data{FromWide(name), FromWide(text), isBool, value})
{
}

TlmAttribute* TlmAttribute::Create(const WideChar* name, const WideChar* value)
{
    return new TlmAttribute(name, value, false, false);
}

TlmAttribute* TlmAttribute::Create(const WideChar* name, bool value)
{
    return new TlmAttribute(name, nullptr, true, value);
}

const WideChar* TlmAttribute::GetName() const
{
    return ToWide(d->name);
}

bool TlmAttribute::IsBool() const
{
    return d->isBool;
}

bool TlmAttribute::GetBool() const
{
    return d->value;
}

const WideChar* TlmAttribute::GetText() const
{
    return ToWide(d->text);
}

TlmAttribute::~TlmAttribute()
{
    delete d;
}

TlmState::TlmState(const WideChar* name) : d(new Data{FromWide(name), {}}) {}

TlmState* TlmState::Create(const WideChar* name)
{
    return new TlmState(name);
}

const WideChar* TlmState::GetName() const
{
    return ToWide(d->name);
}

int TlmState::GetAttributeCount() const
{
    return int(d->attributes.size());
}

const TlmAttribute* TlmState::GetAttribute(int index) const
{
    return index >= 0 && index < d->attributes.size() ? d->attributes.at(index) : nullptr;
}

void TlmState::Clear()
{
    qDeleteAll(d->attributes);
    d->attributes.clear();
}

void TlmState::AddAttribute(TlmAttribute* attribute)
{
    if (attribute)
        d->attributes.append(attribute);
}

TlmState::~TlmState()
{
    Clear();
    delete d;
}

TlmWaypoint::TlmWaypoint(const WideChar* name) : d(new Data{FromWide(name), {}}) {}

TlmWaypoint* TlmWaypoint::Create(const WideChar* name)
{
    return new TlmWaypoint(name);
}

const WideChar* TlmWaypoint::GetName() const
{
    return ToWide(d->name);
}

int TlmWaypoint::GetStateCount() const
{
    return int(d->states.size());
}

const TlmState* TlmWaypoint::GetState(int index) const
{
    return index >= 0 && index < d->states.size() ? d->states.at(index) : nullptr;
}

void TlmWaypoint::Clear()
{
    qDeleteAll(d->states);
    d->states.clear();
}

void TlmWaypoint::AddState(TlmState* state)
{
    if (state)
        d->states.append(state);
}

TlmWaypoint::~TlmWaypoint()
{
    Clear();
    delete d;
}

namespace {

QJsonObject ToJson(const TlmWaypoint& waypoint)
{
    QJsonArray states;
    for (int s = 0; s < waypoint.GetStateCount(); ++s)
    {
        const TlmState* state = waypoint.GetState(s);
        QJsonArray attributes;
        for (int a = 0; a < state->GetAttributeCount(); ++a)
        {
            const TlmAttribute* attribute = state->GetAttribute(a);
            QJsonObject entry;
            entry.insert(QStringLiteral("name"), FromWide(attribute->GetName()));
            if (attribute->IsBool())
                entry.insert(QStringLiteral("value"), attribute->GetBool());
            else
                entry.insert(QStringLiteral("value"), FromWide(attribute->GetText()));
            attributes.append(entry);
        }
        QJsonObject entry;
        entry.insert(QStringLiteral("name"), FromWide(state->GetName()));
        entry.insert(QStringLiteral("attributes"), attributes);
        states.append(entry);
    }
    QJsonObject line;
    line.insert(QStringLiteral("waypoint"), FromWide(waypoint.GetName()));
    line.insert(QStringLiteral("states"), states);
    return line;
}

} // namespace

void TlmFacade::WaypointReached(TlmWaypoint* waypoint)
{
    const std::unique_ptr<TlmWaypoint> owned(waypoint);
    if (!owned)
        return;
    const QString logFile = qEnvironmentVariable("KV7_LOG_FILE");
    if (logFile.isEmpty())
        return;
    // The whole line goes out in one unbuffered appending write, so that lines written by several
    // processes into one file do not interleave.
    const QByteArray line = QJsonDocument(ToJson(*owned)).toJson(QJsonDocument::Compact) + '\n';
    QFile file(logFile);
    if (file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        file.write(line);
}

} // namespace Velmora::Kv7
