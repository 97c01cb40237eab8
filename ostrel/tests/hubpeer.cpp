// SPDX-License-Identifier: MIT
// A small application for the hub tests: it links back to whoever connects, reports how it was
// started, echoes every "EchoMsg", floods its launcher and quits at once on "FloodThenQuitMsg",
// and quits on "QuitMsg" (or after a minute, whatever happens). With VMWF_PEER_NOFILE set it may
// open only that many files, so that running out of descriptors comes quickly.

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/ApplicationMessage.h>
#include <OstrelAdapter/ApplicationMessageHandler.h>

#include <QCoreApplication>
#include <QTimer>

#include <sys/resource.h>

using namespace Velmora::OstrelAdapter;

namespace {

class Peer : public ApplicationMessageHandler
{
public:
    void ApplicationLinkStarted(Application* application) override
    {
        m_launcher = application;
        QVariantMap report;
        report.insert(QStringLiteral("Arguments"), QCoreApplication::arguments().mid(1));
        report.insert(QStringLiteral("Environment"), qEnvironmentVariable("VMWF_PEER_VALUE"));
        report.insert(QStringLiteral("ProcessId"), QCoreApplication::applicationPid());
        report.insert(QStringLiteral("LinkedProcessId"), application->GetProcessId());
        ApplicationMessage message(QStringLiteral("PeerStartedMsg"), report);
        application->Send(&message);
    }

    void MessageReceived(ApplicationMessage* message) override
    {
        if (message->GetName() == QLatin1String("QuitMsg"))
        {
            QCoreApplication::quit();
        }
        else if (message->GetName() == QLatin1String("FloodThenQuitMsg") && m_launcher)
        {
            // Everything is handed to the link at once; the hub has to deliver it on the way out.
            const QVariantMap data = message->GetData();
            const QByteArray block(data.value(QStringLiteral("Bytes")).toInt(), 'b');
            for (int i = 0; i < data.value(QStringLiteral("Count")).toInt(); ++i)
            {
                ApplicationMessage flood(QStringLiteral("FloodMsg"),
                                         {{QStringLiteral("Sequence"), i}, {QStringLiteral("Block"), block}});
                m_launcher->Send(&flood);
            }
            QCoreApplication::quit();
        }
        else if (message->GetName() == QLatin1String("EchoMsg") && m_launcher)
        {
            ApplicationMessage reply(QStringLiteral("EchoReplyMsg"), message->GetData());
            m_launcher->Send(&reply);
        }
    }

private:
    Application* m_launcher = nullptr;
};

} // namespace

int main(int argc, char** argv)
{
    bool limited = false;
    const rlim_t files = rlim_t(qEnvironmentVariableIntValue("VMWF_PEER_NOFILE", &limited));
    if (limited)
    {
        struct rlimit limit;
        if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
            return 3;
        limit.rlim_cur = files;
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
            return 3;
    }
    QCoreApplication app(argc, argv);
    ApplicationManager::Initialize(QStringLiteral("HubPeer"));
    Peer peer;
    ApplicationManager::GetInstance()->AddMessageHandler(&peer);
    QTimer::singleShot(60000, &app, &QCoreApplication::quit);
    const int status = app.exec();
    ApplicationManager::GetInstance()->RemoveMessageHandler(&peer);
    ApplicationManager::Uninitialize();
    return status;
}
