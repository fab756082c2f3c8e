#pragma once

#include "pipeline/CopyFileProcessor.h"

#include <QStringList>

namespace quirepad {

// Opens the document with an application (config "appid", a desktop entry
// ID; "com.apple.Preview" stands for the PDF viewer). A file in a temporary
// place or the spool is first copied into a new temporary folder under its
// output name, so removing the job does not pull it from under the viewer.
// No compression, no filter, no notification.
class OpenFileProcessor : public CopyFileProcessor
{
public:
    bool processFile(const QString& path) override;

    QString openedFile() const { return m_opened; }

private:
    QString m_opened;
};

} // namespace quirepad
