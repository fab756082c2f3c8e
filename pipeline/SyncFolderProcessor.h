#pragma once

#include "pipeline/CopyFileProcessor.h"

namespace quirepad {

// Delivers into the sync client's folder (config "output_dir") and, with
// config "copy_to_clipboard", puts the delivered file's link on the
// clipboard.
class SyncFolderProcessor : public CopyFileProcessor
{
public:
    bool copyTempFile(const QString& source, const QString& target) override;

    // The text put on the clipboard for a delivered file: the sync
    // client's shared link when its "dropbox sharelink" gives one, else
    // the file's URL.
    static QString linkFor(const QString& path);

protected:
    bool isPlainFolderProcessor() const override { return false; }
};

} // namespace quirepad
