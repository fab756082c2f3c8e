#include "CaptureCommands.h"

#include "AppSession.h"
#include "CommandLine.h"
#include "DeliveryCommands.h"
#include "WebCaptureClient.h"

#include "foundation/fileutil.h"

namespace quirepad {
namespace {

int printWebView(AppSession& session, const CommandInvocation& call)
{
    QVariantMap parameters;
    QString address;
    QString destination;
    const QStringList& args = call.arguments;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& arg = args.at(i);
        const auto value = [&](QString* into) {
            if (i + 1 >= args.size())
                return false;
            *into = args.at(++i);
            return true;
        };
        QString text;
        if (arg == QLatin1String("--wait")) {
            bool ok = false;
            if (!value(&text) || text.toInt(&ok) < 0 || !ok)
                return call.fail(QStringLiteral("--wait needs a number of seconds"), 2);
            parameters.insert(QStringLiteral("wait_time"), text.toInt());
        } else if (arg == QLatin1String("--extract-text")) {
            parameters.insert(QStringLiteral("extract_text"), true);
        } else if (arg == QLatin1String("--background")) {
            parameters.insert(QStringLiteral("print_bg"), true);
        } else if (arg == QLatin1String("--show")) {
            parameters.insert(QStringLiteral("show_window"), true);
        } else if (arg == QLatin1String("--js") || arg == QLatin1String("--css")) {
            if (!value(&text))
                return call.fail(QStringLiteral("%1 needs the code").arg(arg), 2);
            parameters.insert(
                arg == QLatin1String("--js") ? QStringLiteral("javascript_code") : QStringLiteral("css_code"), text);
        } else if (arg == QLatin1String("--deliver")) {
            if (!value(&destination) || destination.isEmpty())
                return call.fail(QStringLiteral("--deliver needs a destination"), 2);
        } else if (arg.startsWith(QLatin1String("--"))) {
            return call.fail(QStringLiteral("unknown option %1").arg(arg), 2);
        } else if (address.isNull()) {
            address = arg;
        } else {
            return call.fail(QStringLiteral("one address at a time"), 2);
        }
    }
    if (address.isEmpty())
        return call.fail(QStringLiteral("print-web-view needs a URL (see quirepad print-web-view --help)"), 2);
    const QUrl url = QUrl::fromUserInput(address, call.workingDirectory, QUrl::AssumeLocalFile);
    if (!url.isValid())
        return call.fail(QStringLiteral("not a web address: %1").arg(address), 2);

    const WebCaptureClient::Result result = session.webCapture().capture(url, parameters);
    if (result.path.isEmpty())
        return call.fail(
            QStringLiteral("no PDF of %1: %2")
                .arg(url.toString(), result.error.isEmpty() ? QStringLiteral("the page did not load") : result.error));
    if (destination.isEmpty()) {
        call.out << result.path << '\n';
        return 0;
    }
    QVariantMap info;
    info.insert(QStringLiteral("TITLE"), result.title.isEmpty() ? path_basename(result.path) : result.title);
    info.insert(QStringLiteral("HOST"), url.host());
    return deliverFiles(session, call, destination, { result.path }, info);
}

} // namespace

void addCaptureCommands(CommandLine& commandLine, AppSession& session)
{
    commandLine.addCommand({ QStringLiteral("print-web-view"),
        QStringLiteral("URL [--wait N] [--extract-text] [--js CODE] [--css CODE] [--background] [--show] "
                       "[--deliver ID]"),
        QStringLiteral("print a web page to PDF and print the PDF's path\n"
                       "  --wait N           settle N more seconds after loading\n"
                       "  --extract-text     keep only the readable text\n"
                       "  --js CODE          run the script in the page first\n"
                       "  --css CODE         add the style sheet to the page first\n"
                       "  --background       print backgrounds\n"
                       "  --show             show the page in a window\n"
                       "  --deliver ID       hand the PDF to a destination like a printed job"),
        [&session](const CommandInvocation& call) { return printWebView(session, call); }, {},
        QStringList { QStringLiteral("--wait="), QStringLiteral("--extract-text"), QStringLiteral("--js="),
            QStringLiteral("--css="), QStringLiteral("--background"), QStringLiteral("--show"),
            QStringLiteral("--deliver=") } });
}

} // namespace quirepad
