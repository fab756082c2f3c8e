// libqpdf without its transitional PointerHolder.
#define POINTERHOLDER_TRANSITION 4

#include "pipeline/PdfCompressor.h"

#include "pipeline/ImageRecoder.h"
#include "pipeline/PdfImagePlacements.h"

#include <qpdf/Buffer.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFWriter.hh>

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QMap>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <exception>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace quirepad {

Q_LOGGING_CATEGORY(lcCompressor, "quirepad.compressor", QtInfoMsg)

namespace {

using Clock = std::chrono::steady_clock;

// Thrown through libqpdf to end a write early.
struct StopRequested : std::exception {
    const char* what() const noexcept override { return "stopped"; }
};

struct Job {
    QPDFObjectHandle image;
    ImageRecoder::Source source = ImageRecoder::Source::Jpeg;
    bool flate = false; // samples that libqpdf must inflate first
    int components = 3;
    QSize pixels;
    QSize target;
    qint64 storedBytes = 0;
};

int integerKey(QPDFObjectHandle dict, const char* key, int fallback = 0)
{
    QPDFObjectHandle value = dict.getKey(key);
    return value.isInteger() ? value.getIntValueAsInt() : fallback;
}

// 1 or 3 for the colour spaces whose samples can go into a JPEG as they
// are; 0 for the others (CMYK, indexed, separations, Lab, ...).
int jpegComponents(QPDFObjectHandle colourSpace)
{
    if (colourSpace.isNameAndEquals("/DeviceRGB"))
        return 3;
    if (colourSpace.isNameAndEquals("/DeviceGray"))
        return 1;
    if (colourSpace.isArray() && colourSpace.getArrayNItems() == 2
        && colourSpace.getArrayItem(0).isNameAndEquals("/ICCBased") && colourSpace.getArrayItem(1).isStream()) {
        const int n = integerKey(colourSpace.getArrayItem(1).getDict(), "/N");
        return n == 1 || n == 3 ? n : 0;
    }
    return 0;
}

std::vector<std::string> filterNames(QPDFObjectHandle filter)
{
    std::vector<std::string> names;
    if (filter.isName()) {
        names.push_back(filter.getName());
    } else if (filter.isArray()) {
        for (QPDFObjectHandle item : filter.getArrayAsVector())
            names.push_back(item.isName() ? item.getName() : std::string("?"));
    } else if (!filter.isNull()) {
        names.push_back("?");
    }
    return names;
}

// Fills the job's source and answers whether the image is one this code
// recodes right.
bool recodable(QPDFObjectHandle dict, Job& job)
{
    if (integerKey(dict, "/BitsPerComponent") != 8 || job.components == 0)
        return false;
    if (!dict.getKey("/Decode").isNull() || dict.getKey("/Mask").isArray())
        return false;
    QPDFObjectHandle smask = dict.getKey("/SMask");
    // A soft mask with Matte must keep the image's size.
    if (smask.isStream() && !smask.getDict().getKey("/Matte").isNull())
        return false;
    if (qint64(job.pixels.width()) * job.pixels.height() > 200'000'000)
        return false;
    const std::vector<std::string> filters = filterNames(dict.getKey("/Filter"));
    if (filters.empty()) {
        job.source = ImageRecoder::Source::Samples;
        return true;
    }
    if (filters.size() != 1)
        return false;
    if (filters.front() == "/FlateDecode") {
        job.source = ImageRecoder::Source::Samples;
        job.flate = true;
        return true;
    }
    if (filters.front() == "/DCTDecode") {
        QPDFObjectHandle parms = dict.getKey("/DecodeParms");
        if (parms.isArray() && parms.getArrayNItems() == 1)
            parms = parms.getArrayItem(0);
        if (parms.isDictionary() && !parms.getKey("/ColorTransform").isNull())
            return false;
        job.source = ImageRecoder::Source::Jpeg;
        return true;
    }
    return false;
}

// Embedded fonts that are whole, not subsets ("ABCDEF+Name"): Ghostscript
// would subset them.
qint64 wholeFontBytes(QPDF& pdf)
{
    static const QRegularExpression subsetTag(QStringLiteral("^[A-Z]{6}\\+"));
    qint64 bytes = 0;
    for (QPDFObjectHandle object : pdf.getAllObjects()) {
        if (!object.isDictionary() || !object.getKey("/Type").isNameAndEquals("/FontDescriptor"))
            continue;
        QPDFObjectHandle name = object.getKey("/FontName");
        if (name.isName() && subsetTag.match(QString::fromStdString(name.getName()).mid(1)).hasMatch())
            continue;
        for (const char* key : { "/FontFile", "/FontFile2", "/FontFile3" }) {
            QPDFObjectHandle file = object.getKey(key);
            if (file.isStream())
                bytes += integerKey(file.getDict(), "/Length");
        }
    }
    return bytes;
}

} // namespace

PdfCompressor::Options PdfCompressor::Options::fromGhostscriptArguments(const QStringList& arguments)
{
    Options options;
    QMap<QString, QString> values;
    for (const QString& argument : arguments) {
        if (!argument.startsWith(QLatin1String("-d")))
            continue;
        const qsizetype equals = argument.indexOf(u'=');
        if (equals > 2)
            values.insert(argument.mid(2, equals - 2), argument.mid(equals + 1));
        else
            values.insert(argument.mid(2), QStringLiteral("true"));
    }
    // The preset first, then the settings that override it.
    const QString preset = values.value(QStringLiteral("PDFSETTINGS"));
    struct Preset {
        const char* name;
        double resolution;
        int quality;
    };
    for (const Preset& p : { Preset { "/screen", 72, 38 }, Preset { "/ebook", 150, 62 }, Preset { "/printer", 300, 80 },
             Preset { "/prepress", 300, 92 }, Preset { "/default", 0, 80 } }) {
        if (preset == QLatin1String(p.name)) {
            options.colorResolution = options.grayResolution = p.resolution;
            options.jpegQuality = p.quality;
        }
    }
    const auto number = [&](const char* key, double& target) {
        bool ok = false;
        const double value = values.value(QLatin1String(key)).toDouble(&ok);
        if (ok && value >= 0)
            target = value;
    };
    number("ColorImageResolution", options.colorResolution);
    number("GrayImageResolution", options.grayResolution);
    number("ColorImageDownsampleThreshold", options.colorThreshold);
    number("GrayImageDownsampleThreshold", options.grayThreshold);
    if (values.value(QStringLiteral("DownsampleColorImages")) == QLatin1String("false"))
        options.colorResolution = 0;
    if (values.value(QStringLiteral("DownsampleGrayImages")) == QLatin1String("false"))
        options.grayResolution = 0;
    options.colorThreshold = std::max(1.0, options.colorThreshold);
    options.grayThreshold = std::max(1.0, options.grayThreshold);
    return options;
}

bool PdfCompressor::Report::ghostscriptMayHelp(qint64 inputBytes) const
{
    if (signedDocument)
        return false;
    if (outcome == Outcome::Failed)
        return true;
    const qint64 left = imageBytesLeft + wholeFontBytes;
    return outcome == Outcome::Written && left >= std::max<qint64>(256 * 1024, inputBytes / 4);
}

PdfCompressor::PdfCompressor(const Options& options)
    : m_options(options)
{
}

PdfCompressor::Report PdfCompressor::compress(const QString& input, const QString& output)
{
    Report report;
    const Clock::time_point deadline = Clock::now() + m_options.timeLimit;
    const auto stopping = [&] {
        if (Clock::now() > deadline)
            m_stop.store(true);
        return m_stop.load();
    };
    const QByteArray inputName = QFile::encodeName(input);
    const QByteArray outputName = QFile::encodeName(output);
    QElapsedTimer timer;
    timer.start();
    const auto phase
        = [&](const char* name) { qCDebug(lcCompressor).noquote() << input << name << timer.restart() << "ms"; };
    try {
        QPDF pdf;
        pdf.setSuppressWarnings(true);
        pdf.processFile(inputName.constData());
        if (pdf.anyWarnings())
            throw std::runtime_error("the file is damaged");
        QPDFObjectHandle form = pdf.getRoot().getKey("/AcroForm");
        if (form.isDictionary() && (integerKey(form, "/SigFlags") & 1)) {
            report.signedDocument = true;
            report.error = QStringLiteral("the document is signed");
            return report;
        }
        report.wholeFontBytes = wholeFontBytes(pdf);
        phase("read");

        // Which images to reduce, and to what size.
        const PdfImagePlacements::Sizes placements = PdfImagePlacements::measure(pdf, &m_stop);
        if (stopping())
            throw StopRequested();
        phase("measured");
        std::set<QPDFObjGen> masks; // drawn through other images, never on their own
        for (const auto& [id, placed] : placements) {
            QPDFObjectHandle dict = pdf.getObjectByObjGen(id).getDict();
            for (const char* key : { "/SMask", "/Mask" })
                if (dict.getKey(key).isStream())
                    masks.insert(dict.getKey(key).getObjGen());
        }
        std::vector<Job> jobs;
        for (const auto& [id, placed] : placements) {
            if (masks.count(id))
                continue;
            Job job;
            job.image = pdf.getObjectByObjGen(id);
            QPDFObjectHandle dict = job.image.getDict();
            job.pixels = QSize(integerKey(dict, "/Width"), integerKey(dict, "/Height"));
            if (job.pixels.isEmpty() || (dict.getKey("/ImageMask").isBool() && dict.getKey("/ImageMask").getBoolValue())
                || integerKey(dict, "/BitsPerComponent") == 1)
                continue;
            job.components = jpegComponents(dict.getKey("/ColorSpace"));
            const bool grey = job.components == 1;
            const double resolution = grey ? m_options.grayResolution : m_options.colorResolution;
            const double threshold = grey ? m_options.grayThreshold : m_options.colorThreshold;
            if (resolution <= 0 || placed.width() < 1 || placed.height() < 1)
                continue;
            // The pixels the drawn size needs at the target resolution.
            const double wanted[2] = { placed.width() / 72 * resolution, placed.height() / 72 * resolution };
            if (job.pixels.width() <= threshold * wanted[0] && job.pixels.height() <= threshold * wanted[1])
                continue;
            job.storedBytes = integerKey(dict, "/Length");
            if (!recodable(dict, job)) {
                ++report.imagesLeft;
                report.imageBytesLeft += job.storedBytes;
                continue;
            }
            job.target = QSize(std::clamp(int(std::ceil(wanted[0])), 1, job.pixels.width()),
                std::clamp(int(std::ceil(wanted[1])), 1, job.pixels.height()));
            if (job.target != job.pixels && job.storedBytes > 0)
                jobs.push_back(job);
        }

        // Recoding runs on several threads; libqpdf is only touched by one
        // at a time.
        std::mutex pdfLock;
        std::atomic<size_t> next { 0 };
        std::atomic<int> reduced { 0 };
        const auto recodeOne = [&](Job& job) {
            ImageRecoder::Input in { {}, job.source, job.pixels, job.components };
            {
                std::lock_guard lock(pdfLock);
                const std::shared_ptr<Buffer> data
                    = job.flate ? job.image.getStreamData(qpdf_dl_generalized) : job.image.getRawStreamData();
                in.data = QByteArray(reinterpret_cast<const char*>(data->getBuffer()), qsizetype(data->getSize()));
            }
            const std::optional<QByteArray> jpeg = ImageRecoder::recode(in, job.target, m_options.jpegQuality);
            in.data.clear();
            if (!jpeg || jpeg->size() >= job.storedBytes)
                return; // left as it is
            std::lock_guard lock(pdfLock);
            job.image.replaceStreamData(std::string(jpeg->constData(), size_t(jpeg->size())),
                QPDFObjectHandle::newName("/DCTDecode"), QPDFObjectHandle::newNull());
            QPDFObjectHandle dict = job.image.getDict();
            dict.replaceKey("/Width", QPDFObjectHandle::newInteger(job.target.width()));
            dict.replaceKey("/Height", QPDFObjectHandle::newInteger(job.target.height()));
            dict.replaceKey("/BitsPerComponent", QPDFObjectHandle::newInteger(8));
            dict.removeKey("/DecodeParms");
            ++reduced;
        };
        const auto work = [&] {
            for (size_t i = next++; i < jobs.size() && !stopping(); i = next++) {
                try {
                    recodeOne(jobs[i]);
                } catch (...) {
                    // An image libqpdf cannot decode stays as it is.
                }
            }
        };
        const int threads = std::clamp(m_options.threads, 1, std::max(1, int(jobs.size())));
        {
            std::vector<std::jthread> helpers;
            for (int t = 1; t < threads; ++t)
                helpers.emplace_back(work);
            work();
        }
        report.imagesReduced = reduced.load();
        phase("recoded");
        if (stopping())
            throw StopRequested();

        QPDFWriter writer(pdf, outputName.constData());
        writer.setObjectStreamMode(qpdf_o_generate);
        writer.setCompressStreams(true);
        writer.setDecodeLevel(qpdf_dl_generalized);
        writer.setRecompressFlate(true);
        writer.registerProgressReporter(std::make_shared<QPDFWriter::FunctionProgressReporter>([&](int) {
            if (stopping())
                throw StopRequested();
        }));
        writer.write();
        if (pdf.anyWarnings())
            throw std::runtime_error("libqpdf warned while writing");
        phase("written");
        report.outputBytes = QFileInfo(output).size();
        report.outcome = report.outputBytes > 0 ? Outcome::Written : Outcome::Failed;
    } catch (const StopRequested&) {
        report.outcome = Outcome::Stopped;
        report.error = QStringLiteral("stopped");
        QFile::remove(output);
    } catch (const std::exception& error) {
        report.outcome = Outcome::Failed;
        report.error = QString::fromUtf8(error.what());
        QFile::remove(output);
    }
    return report;
}

} // namespace quirepad
