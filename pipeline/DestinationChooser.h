#pragma once

#include <QString>

namespace quirepad {

// How a batch asks the user for a destination when a job names none.
class DestinationChooser
{
public:
    enum class Outcome {
        Chosen,     // the destination's name is in 'name'
        Cancelled,  // the user declined: the job may be discarded
        Unavailable // nobody can be asked (no display): keep the job
    };
    struct Answer {
        Outcome outcome = Outcome::Unavailable;
        QString name;
    };

    virtual ~DestinationChooser() = default;
    virtual Answer chooseDestination() = 0;
};

// Without a display nobody can be asked.
class HeadlessDestinationChooser : public DestinationChooser
{
public:
    Answer chooseDestination() override { return {Outcome::Unavailable, QString()}; }
};

} // namespace quirepad
