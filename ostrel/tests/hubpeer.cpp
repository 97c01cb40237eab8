// A small application for the hub tests: it links back to whoever connects, reports how it was
// started, echoes every "EchoMsg" and quits on "QuitMsg" (or after a minute, whatever happens).

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/ApplicationMessageHandler.h>
#include <OstrelAdapter/MessageBase.h>

#include <QCoreApplication>
#include <QTimer>

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
        if (message->GetName() == QLatin1String("QuitMsg")) {
            QCoreApplication::quit();
        } else if (message->GetName() == QLatin1String("EchoMsg") && m_launcher) {
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
