#pragma once

#include <QString>

#include <chrono>

namespace quirepad {

// Unmounts and ejects the device a volume is mounted from, through UDisks2
// on the system bus: the block device whose mount points hold the root is
// unmounted, then its drive powered off, or, for a loop device, the loop
// device deleted.
class VolumeEjector
{
public:
    explicit VolumeEjector(QString root);

    VolumeEjector& setTimeout(std::chrono::milliseconds timeout);

    // False, with errorString() set, when the volume could not be ejected.
    bool eject();
    QString errorString() const { return m_error; }

private:
    QString findBlockObject();

    QString m_root;
    QString m_error;
    std::chrono::milliseconds m_timeout{std::chrono::seconds(30)};
};

} // namespace quirepad
