#include "CommandLine.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Quirepad"));
    QCoreApplication::setOrganizationName(QStringLiteral("Quirepad"));

    QTextStream out(stdout);
    QTextStream err(stderr);
    const quirepad::CommandLine commandLine;
    const int status = commandLine.execute(QCoreApplication::arguments().mid(1), out, err);
    out.flush();
    err.flush();
    return status;
}
