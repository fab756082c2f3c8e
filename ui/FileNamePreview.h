#pragma once

#include <QString>

namespace quirepad {

// The name a delivery gives a sample job ("Quarterly plan", printed by
// this user on this computer) under a name pattern, computed by the
// delivery's own naming.
class FileNamePreview
{
public:
    static QString sampleTitle();
    static QString fileName(const QString& pattern);
};

} // namespace quirepad
