#pragma once

#include "pipeline/CopyFileProcessor.h"

namespace quirepad {

// Runs the destination's plugin workflow (config "plugin_name") on the
// prepared document: a copy named by the pattern, or the file itself with
// config "reuse_path". The workflow decides where its results go; the
// first one is named in the notification.
class PluginFileProcessor : public CopyFileProcessor
{
public:
    bool copyTempFile(const QString& source, const QString& target) override;

protected:
    bool isPlainFolderProcessor() const override { return false; }
};

} // namespace quirepad
