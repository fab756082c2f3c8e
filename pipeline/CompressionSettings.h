#pragma once

#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

namespace quirepad {

// The Ghostscript settings of "ReduceFileSize.qfilter", a property list:
// Device, CompatibilityLevel, Arguments (array) and TimeoutSeconds.
struct CompressionSettings {
    QString device = QStringLiteral("pdfwrite");
    QString compatibilityLevel = QStringLiteral("1.5");
    QStringList arguments;
    std::chrono::seconds timeout{300};

    static std::optional<CompressionSettings> fromFile(const QString& path);

    // The whole Ghostscript command line for one file, always with -dSAFER.
    QStringList ghostscriptArguments(const QString& input, const QString& output) const;
};

} // namespace quirepad
