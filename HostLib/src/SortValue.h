#pragma once

#include "Export.h"

#include <Poco/Dynamic/Var.h>

#include <string>

namespace Kesa::Host
{

/// The value of a member by which a list is ordered: numbers by their size before texts, then what is neither, and what
/// is missing last. A falling order turns all of that round but the last.
class KESA_API SortValue
{
public:
    SortValue(const Poco::Dynamic::Var& value, bool descending);

    bool operator<(const SortValue& other) const;

private:
    enum class Rank
    {
        NUMBER,
        TEXT,
        OTHER, ///< objects and arrays, which have no order among themselves
        MISSING
    };

    bool isBefore(const SortValue& other) const;

    Rank m_rank = Rank::OTHER;
    long double m_number = 0; ///< wide enough for every integer of 64 bits
    std::string m_text;
    bool m_descending;
};

} // namespace Kesa::Host
