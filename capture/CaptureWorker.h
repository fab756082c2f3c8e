#pragma once

#include "capture/WebCaptureParameters.h"

#include <QByteArray>
#include <QJsonObject>
#include <QStringList>

namespace quirepad {

// The web capture worker, a process of its own so that only it loads Qt
// WebEngine.
//
//   quirepad-webcapture URL [--wait N] [--extract-text] [--js CODE]
//                       [--css CODE] [--background] [--show] [--printinfo FILE]
//     prints the PDF's path on one line and exits 0, or one line of error
//     on stderr and exits 1.
//
//   quirepad-webcapture --serve
//     reads one request a line on stdin
//       {"id":N,"url":"...","parameters":{"wait_time":2,"print_bg":true,...}}
//     and answers each, in order, with one line on stdout
//       {"id":N,"path":"/…/Title.pdf","title":"Title"}
//       {"id":N,"path":"","error":"…"}
//     one capture at a time; ends at the end of its input. In JSON the
//     parameters' printinfo is the text of an XML property list, or a
//     binary one in base64.
int run_webcapture_worker(const QStringList& arguments);

// One request line of --serve answered (the JSON object, no newline).
QJsonObject answer_capture_request(const QByteArray& line);

// The parameters of a request's "parameters" object.
WebCaptureParameters capture_parameters_from_json(const QJsonObject& object);

} // namespace quirepad
