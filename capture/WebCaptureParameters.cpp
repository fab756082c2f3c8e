#include "capture/WebCaptureParameters.h"

namespace quirepad {

namespace {

bool flag(const QVariantMap& map, const char* key)
{
    const QVariant v = map.value(QLatin1String(key));
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString().trimmed().toLower();
        return s == QLatin1String("1") || s == QLatin1String("true") || s == QLatin1String("yes");
    }
    return v.toBool();
}

} // namespace

WebCaptureParameters WebCaptureParameters::fromVariantMap(const QVariantMap& map)
{
    WebCaptureParameters p;
    const QVariant info = map.value(QStringLiteral("printinfo"));
    p.printinfo = info.typeId() == QMetaType::QString ? info.toString().toUtf8() : info.toByteArray();
    p.show_window = flag(map, "show_window");
    p.print_bg = flag(map, "print_bg");
    bool ok = false;
    const double wait = map.value(QStringLiteral("wait_time")).toDouble(&ok);
    p.wait_time = ok && wait > 0 ? int(qMin(wait, 3600.0)) : 0;
    p.extract_text = flag(map, "extract_text");
    p.javascript_code = map.value(QStringLiteral("javascript_code")).toString();
    p.css_code = map.value(QStringLiteral("css_code")).toString();
    return p;
}

QVariantMap WebCaptureParameters::toVariantMap() const
{
    return {{QStringLiteral("printinfo"), printinfo},
            {QStringLiteral("show_window"), show_window},
            {QStringLiteral("print_bg"), print_bg},
            {QStringLiteral("wait_time"), wait_time},
            {QStringLiteral("extract_text"), extract_text},
            {QStringLiteral("javascript_code"), javascript_code},
            {QStringLiteral("css_code"), css_code}};
}

} // namespace quirepad
