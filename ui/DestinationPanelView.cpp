#include "ui/DestinationPanelView.h"

namespace quirepad {

int DestinationPanelView::indexForName(const QString& text) const
{
    if (text.isEmpty())
        return -1;
    const QString prefix = text.toLower();
    const QVariantList items = content();
    for (int i = 0; i < items.size(); ++i)
        if (items.at(i).toMap().value(QStringLiteral("title")).toString().toLower().startsWith(prefix))
            return i;
    return -1;
}

} // namespace quirepad
