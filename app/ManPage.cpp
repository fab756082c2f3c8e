#include "ManPage.h"

#include "CommandLine.h"
#include "InstanceMessage.h"

#include "app/version.h"
#include "foundation/SettingsSchema.h"

#include <QTextStream>

namespace quirepad {

ManPage::ManPage(const CommandLine& commandLine)
    : m_commandLine(commandLine)
{
}

QString ManPage::escaped(const QString& text)
{
    QString result = text;
    result.replace(u'\\', QLatin1String("\\e"));
    result.replace(u'-', QLatin1String("\\-"));
    if (result.startsWith(u'.') || result.startsWith(u'\''))
        result.prepend(QLatin1String("\\&"));
    return result;
}

QString ManPage::text() const
{
    QString page;
    QTextStream s(&page);
    s << ".TH QUIREPAD 1 \"\" \"quirepad " << escaped(QStringLiteral(QUIREPAD_VERSION)) << "\" \"User Commands\"\n"
      << ".SH NAME\n"
      << "quirepad \\- print to action: turn printed documents into delivered files\n"
      << ".SH SYNOPSIS\n"
      << ".B quirepad\n"
      << "[\\fB\\-\\-headless\\fR]\n"
      << ".br\n"
      << ".B quirepad\n"
      << "\\fICOMMAND\\fR [\\fIARGS\\fR...]\n"
      << ".br\n"
      << ".B quirepad\n"
      << "\\fIFILE\\fR...\n"
      << ".SH DESCRIPTION\n"
      << "A CUPS backend spools every job printed to the queue \\fBPrint_to_Quirepad\\fR as a PDF file;\n"
      << "the user's Quirepad takes it from the spool and delivers it to a destination: a copy in a\n"
      << "folder under a name built from a pattern, opening with an application, an e\\-book library,\n"
      << "a sync folder, an e\\-reader or a workflow of the user's own.\n"
      << ".PP\n"
      << "Without arguments (and with a display) Quirepad runs in the tray; with \\fB\\-\\-headless\\fR\n"
      << "it runs without any window. While it runs, every other \\fBquirepad\\fR \\fICOMMAND\\fR or\n"
      << "\\fIFILE\\fR is forwarded to it over a user\\-only local socket; without a running instance\n"
      << "a command works in its own process.\n"
      << ".SH OPTIONS\n"
      << ".TP\n\\fB\\-h\\fR, \\fB\\-\\-help\\fR\nShow the commands and exit.\n"
      << ".TP\n\\fB\\-v\\fR, \\fB\\-\\-version\\fR\nShow the version and exit.\n"
      << ".TP\n\\fB\\-\\-headless\\fR\nRun as the user's Quirepad instance without any window.\n"
      << ".SH COMMANDS\n"
      << "Every command answers \\fB\\-\\-help\\fR (or \\fB\\-h\\fR) with its usage and is then not run.\n";
    for (const CommandLine::Command& command : m_commandLine.commands()) {
        s << ".TP\n\\fB" << escaped(command.name) << "\\fR";
        if (!command.synopsis.isEmpty())
            s << " \\fI" << escaped(command.synopsis) << "\\fR";
        s << '\n';
        const QStringList lines = command.description.split(u'\n');
        s << escaped(lines.first()) << '\n';
        if (lines.size() > 1) {
            s << ".nf\n";
            for (qsizetype i = 1; i < lines.size(); ++i)
                s << escaped(lines.at(i)) << '\n';
            s << ".fi\n";
        }
    }
    s << ".SH SETTINGS\n"
      << "Read and changed with \\fBquirepad defaults\\fR; kept in \\fI~/.config/Quirepad/Quirepad.conf\\fR.\n";
    for (const SettingDefinition& setting : SettingsSchema::all()) {
        s << ".TP\n\\fB" << escaped(setting.key) << "\\fR (" << escaped(SettingsSchema::typeName(setting.type));
        if (setting.type == SettingType::Integer)
            s << ' ' << setting.minimum << "\\(en" << setting.maximum;
        const QString shown = SettingsSchema::displayText(setting.defaultValue);
        s << "; default " << (shown.isEmpty() ? QStringLiteral("empty") : escaped(shown)) << ")\n"
          << escaped(setting.description) << (setting.internal ? "; not written from the command line" : "") << ".\n";
    }
    s << ".SH EXIT STATUS\n"
      << ".TP\n0\nDone.\n"
      << ".TP\n1\nThe command failed; standard error says why.\n"
      << ".TP\n2\nThe command was used the wrong way.\n"
      << ".TP\n"
      << InstanceReply::unavailableStatus
      << "\nThe running Quirepad did not take or did not answer the request; it was not carried out by\n"
      << "this process either.\n"
      << ".SH FILES\n"
      << ".TP\n\\fI/var/spool/quirepad/quirepad_spool/\\fR\nThe spool the CUPS backend writes printed jobs to.\n"
      << ".TP\n\\fI~/.cache/Quirepad/tmp/\\fR\nPrivate temporary files.\n"
      << ".SH SEE ALSO\n"
      << ".BR lp (1),\n"
      << ".BR cupsctl (8)\n";
    return page;
}

} // namespace quirepad
