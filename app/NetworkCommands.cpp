#include "NetworkCommands.h"

#include "AppSession.h"
#include "CommandLine.h"

#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"
#include "network/NetworkServices.h"

namespace quirepad {
namespace {

const QString NotRunning = QStringLiteral("Quirepad is not running; its network services run with it");

int airprint(AppSession& session, const CommandInvocation& call)
{
    if (call.arguments != QStringList { QStringLiteral("status") })
        return call.fail(QStringLiteral("usage: quirepad airprint status"), 2);
    session.delegate(); // settings registered
    const NetworkServices* network = session.networkServices();
    if (!network) {
        call.out << "queue: " << UserDefaults::standard().stringValue(SettingKey::AirPrinter) << "\n"
                 << "published: no\nwhy: " << NotRunning << "\n";
        return 1;
    }
    call.out << network->airPrintStatus();
    return 0;
}

int feed(AppSession& session, const CommandInvocation& call)
{
    const QString what = call.arguments.value(0);
    if (call.arguments.size() != 1 || (what != QLatin1String("url") && what != QLatin1String("status")))
        return call.fail(QStringLiteral("usage: quirepad feed url | status"), 2);
    session.delegate();
    const NetworkServices* network = session.networkServices();
    if (!network)
        return call.fail(NotRunning);
    if (what == QLatin1String("status")) {
        call.out << network->feedStatus();
        return network->isFeedServing() ? 0 : 1;
    }
    if (!network->isFeedServing()) {
        call.err << "quirepad: " << network->feedStatus();
        return 1;
    }
    call.out << network->feedUrl() << "\n";
    return 0;
}

} // namespace

void addNetworkCommands(CommandLine& commandLine, AppSession& session)
{
    commandLine.addCommand({ QStringLiteral("airprint"), QStringLiteral("status"),
        QStringLiteral("whether phones see the queue as an AirPrint printer\n"
                       "Shows the queue found, whether \"AirPrint Quirepad\" is published, and if\n"
                       "not, why."),
        [&session](const CommandInvocation& call) { return airprint(session, call); }, {}, QStringList() });
    commandLine.addCommand({ QStringLiteral("feed"), QStringLiteral("url | status"),
        QStringLiteral("the address or the state of the page feed\n"
                       "The feed is an RSS feed and an index of the printed pages folder."),
        [&session](const CommandInvocation& call) { return feed(session, call); }, {}, QStringList() });
}

} // namespace quirepad
