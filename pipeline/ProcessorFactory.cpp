#include "pipeline/ProcessorFactory.h"

#include "pipeline/BookLibraryProcessor.h"
#include "pipeline/OpenFileProcessor.h"
#include "pipeline/PluginFileProcessor.h"
#include "pipeline/ReaderProcessor.h"
#include "pipeline/SyncFolderProcessor.h"
#include "store/DestinationSchema.h"
#include "store/ManagedObjectContext.h"

namespace quirepad {

std::unique_ptr<CopyFileProcessor> makeProcessorForType(const QString& type)
{
    if (type == QLatin1String("O"))
        return std::make_unique<OpenFileProcessor>();
    if (type == QLatin1String("X"))
        return std::make_unique<PluginFileProcessor>();
    if (type == QLatin1String("B"))
        return std::make_unique<BookLibraryProcessor>(BookLibraryProcessor::Library::Books);
    if (type == QLatin1String("I"))
        return std::make_unique<BookLibraryProcessor>(BookLibraryProcessor::Library::Media);
    if (type == QLatin1String("D"))
        return std::make_unique<SyncFolderProcessor>();
    if (type == QLatin1String("K"))
        return std::make_unique<ReaderProcessor>();
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
