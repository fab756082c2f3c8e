#include "pipeline/ProcessorFactory.h"

#include "pipeline/OpenFileProcessor.h"
#include "pipeline/PluginFileProcessor.h"
#include "store/DestinationSchema.h"
#include "store/ManagedObjectContext.h"

namespace quirepad {

namespace {

// Destinations whose delivery this build cannot do yet (the e-book library,
// the media library, the sync folder and the e-reader): the job is kept and
// the user is told, never silently copied elsewhere.
class UnavailableProcessor : public CopyFileProcessor
{
public:
    explicit UnavailableProcessor(QString type)
        : m_type(std::move(type))
    {
    }

    bool processFile(const QString&) override
    {
        fail(QStringLiteral("destinations of type %1 cannot deliver in this version of Quirepad").arg(m_type));
        return false;
    }

private:
    QString m_type;
};

} // namespace

std::unique_ptr<CopyFileProcessor> makeProcessorForType(const QString& type)
{
    if (type == QLatin1String("O"))
        return std::make_unique<OpenFileProcessor>();
    if (type == QLatin1String("X"))
        return std::make_unique<PluginFileProcessor>();
    if (type == QLatin1String("D") || type == QLatin1String("I") || type == QLatin1String("K")
        || type == QLatin1String("B"))
        return std::make_unique<UnavailableProcessor>(type);
    return std::make_unique<CopyFileProcessor>();
}

std::unique_ptr<CopyFileProcessor> copyProcessorForName(ManagedObjectContext& context, const QString& name)
{
    if (name.isEmpty())
        return nullptr;
    const std::optional<QList<DestinationItem*>> records =
        context.entities(QString::fromLatin1(DestinationSchema::entityName), Predicate::always());
    if (!records)
        return nullptr;
    for (DestinationItem* record : *records) {
        if (record->recid() != name && record->name() != name)
            continue;
        std::unique_ptr<CopyFileProcessor> processor = makeProcessorForType(record->type());
        processor->do_compress = record->boolForKey(QStringLiteral("do_compress"));
        processor->do_overwrite = record->boolForKey(QStringLiteral("do_overwrite"));
        processor->tranform = record->value(QStringLiteral("tranform")).toString();
        processor->name_pattern = record->value(QStringLiteral("name_pattern")).toString();
        processor->config = record->config();
        return processor;
    }
    return nullptr;
}

} // namespace quirepad
