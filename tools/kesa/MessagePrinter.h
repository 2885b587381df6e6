#pragma once

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <cstddef>
#include <map>
#include <string>

namespace Kesa::Client
{

/// Turns messages of a service into lines for people: the first state of an event in full, later ones as what is
/// different.
///
///     /system/memory/ram  availableBytes=24939733 id=ram ...     an object: its members, then those that changed
///     /system/processes  76 elements: 1 2 3 ...                  a list: its ids, then those that came and went
///
/// Threads: one at a time.
class MessagePrinter
{
public:
    /// Events whose last state is remembered; past it the memory starts anew, and states are printed in full again.
    static constexpr std::size_t MAX_EVENTS = 1000;
    /// Ids of a list that are printed before the line ends with "...".
    static constexpr std::size_t MAX_IDS = 12;

    /// The line for a notification, without the time: event, then what is new. Any JSON is printable.
    std::string notification(const std::string& event, const Poco::Dynamic::Var& data);

    /// `value` as compact JSON; a text that needs no quotes goes without them. No control characters come out.
    static std::string compact(const Poco::Dynamic::Var& value);
    /// The time of day, local, as "16:07:49.123".
    static std::string timeOfDay();

private:
    std::string describe(const Poco::Dynamic::Var& before, const Poco::Dynamic::Var& now) const;

    std::map<std::string, Poco::Dynamic::Var> m_last;
};

} // namespace Kesa::Client
