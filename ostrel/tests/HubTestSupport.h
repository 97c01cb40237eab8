// SPDX-License-Identifier: MIT
#pragma once

// What the hub tests share: private folders for every per-user location, a manifest writer and a
// handler that records what arrives.

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationMessage.h>
#include <OstrelAdapter/ApplicationMessageHandler.h>

#include "XdgSandbox.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QList>
#include <QPair>
#include <QTemporaryDir>
#include <QVariantMap>
#include <QtEndian>

namespace HubTest {

// The private home every test shares (XdgSandbox.h), plus a folder named by the hub's own
// variable for manifests found outside the data folders.
class Environment
{
public:
    bool Setup()
    {
        if (!m_sandbox.Setup())
            return false;
        QDir(Root()).mkpath(QStringLiteral("extra"));
        qputenv("VELMORA_APPLICATIONS_PATH", QFile::encodeName(ExtraFolder()));
        return true;
    }
    QString Root() const { return m_sandbox.Root(); }
    QString Path(const QString& sub) const { return Root() + QLatin1Char('/') + sub; }
    QString ExtraFolder() const { return Path(QStringLiteral("extra")); }
    QString DataDirsFolder() const { return m_sandbox.DataDirs() + QStringLiteral("/Velmora/Applications"); }
    QString DataHomeFolder() const { return m_sandbox.DataHome() + QStringLiteral("/Velmora/Applications"); }

private:
    TestSupport::XdgSandbox m_sandbox;
};

inline bool WriteManifest(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size();
}

inline QByteArray Manifest(const QString& id, const QString& version, const QString& executable,
                           qint64 infoId = 0)
{
    return QStringLiteral("<?xml version=\"1.0\"?>\n<Application Id=\"%1\" Name=\"%1 app\" Version=\"%2\" "
                          "Executable=\"%3\" InfoId=\"%4\"/>\n")
        .arg(id, version, executable.toHtmlEscaped(), QString::number(infoId))
        .toUtf8();
}

// One frame as a peer writes it: a big-endian length, then the name and the data as a stream.
inline QByteArray FrameOfPayload(const QByteArray& payload)
{
    QByteArray frame(4, '\0');
    qToBigEndian<quint32>(quint32(payload.size()), frame.data());
    return frame + payload;
}

inline QByteArray Frame(const QString& name, const QVariantMap& data)
{
    QByteArray payload;
    QDataStream stream(&payload, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    stream << name << data;
    return FrameOfPayload(payload);
}

// A peer introduces itself with its own process id; the hub can tell another one.
inline qint64 Self()
{
    return QCoreApplication::applicationPid();
}

inline QByteArray Hello(qint64 processId)
{
    QVariantMap data;
    data.insert(QStringLiteral("ProcessId"), processId);
    return Frame(QStringLiteral("OstrelAdapter.LinkHello"), data);
}

class Recorder : public Velmora::OstrelAdapter::ApplicationMessageHandler
{
public:
    void MessageReceived(Velmora::OstrelAdapter::ApplicationMessage* message) override
    {
        messages.append(qMakePair(message->GetName(), message->GetData()));
    }
    void ApplicationLinkStarted(Velmora::OstrelAdapter::Application* application) override
    {
        links.append(application);
    }
    int Count(const QString& name) const
    {
        int count = 0;
        for (const auto& message : messages)
            count += message.first == name ? 1 : 0;
        return count;
    }
    QVariantMap First(const QString& name) const
    {
        for (const auto& message : messages)
        {
            if (message.first == name)
                return message.second;
        }
        return QVariantMap();
    }

    QList<QPair<QString, QVariantMap>> messages;
    QList<Velmora::OstrelAdapter::Application*> links;
};

} // namespace HubTest
