#include "ProfileChangedInd.h"

#include "DumpText.h"

namespace zem {
namespace {

constexpr NamedValue<ProfileChangedEvent> kEventNames[] = {
    {ProfileChangedEvent::Create, "Create"},
    {ProfileChangedEvent::Delete, "Delete"},
    {ProfileChangedEvent::Modify, "Modify"},
    {ProfileChangedEvent::SubscriptionChange, "SubscriptionChange"},
    {ProfileChangedEvent::ProfileReady, "ProfileReady"},
};

}  // namespace

std::string ProfileChangedInd::dump() const {
    std::string text;
    append(text, techType);
    text += ':';
    append(text, profileId);
    text += ' ';
    append(text, kEventNames, event);
    return text;
}

}  // namespace zem
