#pragma once

#include "ui/MYCollectionView.h"

namespace quirepad {

// The destination panel's grid: items are destinations, found by name.
class DestinationPanelView : public MYCollectionView
{
    Q_OBJECT

public:
    using MYCollectionView::MYCollectionView;

    // The first item whose title begins with the text, ignoring case; -1 for none.
    int indexForName(const QString& text) const override;
};

} // namespace quirepad
