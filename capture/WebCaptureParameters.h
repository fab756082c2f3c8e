#pragma once

#include <QByteArray>
#include <QString>
#include <QVariantMap>

namespace quirepad {

// How one page is captured. The keys of the map form are the member names.
struct WebCaptureParameters
{
    QByteArray printinfo;     // page settings, a property list (see PrintInfo)
    bool show_window = false; // show the page in a small window while it loads
    bool print_bg = false;    // print background colours and images
    int wait_time = 0;        // seconds between the load and the print (at least 1)
    bool extract_text = false;  // reduce the page to its readable text first
    QString javascript_code;  // run in the page after the load
    QString css_code;         // added to the page as a <style> element

    // Unknown keys are ignored, missing ones keep their defaults; wait_time
    // is held to 0..3600.
    static WebCaptureParameters fromVariantMap(const QVariantMap& map);
    QVariantMap toVariantMap() const;
};

} // namespace quirepad
