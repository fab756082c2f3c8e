#pragma once

#include <QString>
#include <QStringList>

#include <atomic>
#include <chrono>

namespace quirepad {

// Rewrites a PDF smaller without Ghostscript, in this process: every
// object is written again with libqpdf (object streams, Flate streams
// compressed anew) and the images drawn finer than the target resolution
// are reduced to it and stored as JPEG. Only what it knows to do right is
// touched: 8-bit grey or RGB images (device or ICC-based colour) that are
// uncompressed, Flate or JPEG, without Decode arrays or colour-key masks,
// each kept only when its new data is smaller. What it had to leave (other
// images drawn too fine, whole embedded fonts) is reported so that the
// caller can let Ghostscript try.
//
// One document per call; compress() may run on any thread, and stop() may
// be called from any other.
class PdfCompressor
{
public:
    struct Options {
        double colorResolution = 150; // dpi; 0: colour images are not reduced
        double grayResolution = 150;
        // Reduced only when finer than threshold × resolution.
        double colorThreshold = 1.5;
        double grayThreshold = 1.5;
        int jpegQuality = 62; // IJG scale; Ghostscript's /ebook QFactor 0.76 is about 62
        int threads = 1; // images recoded at once
        std::chrono::milliseconds timeLimit { std::chrono::minutes(5) };

        // Reads the image settings out of Ghostscript pdfwrite arguments
        // (-dPDFSETTINGS=/ebook, -dColorImageResolution=150,
        // -dDownsampleGrayImages=false, ...); the others are ignored.
        static Options fromGhostscriptArguments(const QStringList& arguments);
    };

    enum class Outcome {
        Written, // the output file is complete
        Failed, // unreadable or damaged input, or an error while writing
        Stopped, // stop() or the time limit
    };

    struct Report {
        Outcome outcome = Outcome::Failed;
        qint64 outputBytes = -1;
        int imagesReduced = 0;
        int imagesLeft = 0; // drawn too fine but not something recoded here
        qint64 imageBytesLeft = 0; // their stored size
        qint64 wholeFontBytes = 0; // embedded fonts that are not subsets
        bool signedDocument = false; // a rewrite would break its signatures: nothing written
        QString error;

        // Whether what was left is worth a Ghostscript run on a file of
        // this size.
        bool ghostscriptMayHelp(qint64 inputBytes) const;
    };

    explicit PdfCompressor(const Options& options);

    // Writes the result to output (replacing it). The input is only read.
    Report compress(const QString& input, const QString& output);
    // Asks a running compress() to give up soon.
    void stop() { m_stop.store(true); }

private:
    Options m_options;
    std::atomic<bool> m_stop { false };
};

} // namespace quirepad
