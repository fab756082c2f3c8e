#include "pipeline/CompressionSettings.h"

#include "foundation/PlistReader.h"

#include <QVariantMap>

namespace quirepad {

std::optional<CompressionSettings> CompressionSettings::fromFile(const QString& path)
{
    const std::optional<QVariant> plist = PlistReader::fromFile(path);
    if (!plist || plist->typeId() != QMetaType::QVariantMap)
        return std::nullopt;
    const QVariantMap map = plist->toMap();
    CompressionSettings settings;
    if (map.contains(QStringLiteral("Device")))
        settings.device = map.value(QStringLiteral("Device")).toString();
    if (map.contains(QStringLiteral("CompatibilityLevel")))
        settings.compatibilityLevel = map.value(QStringLiteral("CompatibilityLevel")).toString();
    for (const QVariant& argument : map.value(QStringLiteral("Arguments")).toList()) {
        const QString text = argument.toString();
        // Only settings: nothing that names files or turns safety off.
        if (!text.startsWith(QLatin1String("-d")) || text.startsWith(QLatin1String("-dNOSAFER"))
            || text.contains(QLatin1String("OutputFile")))
            return std::nullopt;
        settings.arguments << text;
    }
    const qint64 timeout = map.value(QStringLiteral("TimeoutSeconds"), 300).toLongLong();
    settings.timeout = std::chrono::seconds(timeout > 0 ? timeout : 300);
    return settings;
}

QStringList CompressionSettings::ghostscriptArguments(const QString& input, const QString& output) const
{
    QStringList args{QStringLiteral("-dSAFER"), QStringLiteral("-dBATCH"), QStringLiteral("-dNOPAUSE"),
                     QStringLiteral("-dQUIET"), QStringLiteral("-sDEVICE=") + device,
                     QStringLiteral("-dCompatibilityLevel=") + compatibilityLevel};
    args << arguments;
    args << QStringLiteral("-sOutputFile=") + output << QStringLiteral("-f") << input;
    return args;
}

} // namespace quirepad
