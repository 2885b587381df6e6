#include "AcceptHeader.h"

#include "HttpText.h"

#include <Poco/Net/HTTPMessage.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>

namespace Kesa::Host
{

namespace
{

/// The text up to the first of `separator`, which is cut off the rest; quotes play no part in media ranges.
std::string_view cutFirst(std::string_view& rest, char separator)
{
    const std::size_t end = std::min(rest.find(separator), rest.size());
    const std::string_view first = trimmed(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return first;
}

/// True for the weights "0", "0.0" and so on, which mean: not this.
bool isExcluded(std::string_view parameters)
{
    while (!parameters.empty())
    {
        const std::string_view parameter = cutFirst(parameters, ';');
        if (parameter.size() > 2 && equalsIgnoringCase(parameter.substr(0, 2), "q="))
            return parameter.substr(2).find_first_not_of("0.") == std::string_view::npos;
    }
    return false;
}

/// How closely a media range names JSON: 0 not at all, 3 exactly.
int closeness(std::string_view range)
{
    if (equalsIgnoringCase(range, "application/json"))
        return 3;
    if (equalsIgnoringCase(range, "application/*"))
        return 2;
    return range == "*/*" ? 1 : 0;
}

/// "application/vnd.kesa.v1.2.3+json", whatever the numbers.
bool isVendorType(std::string_view range)
{
    constexpr std::string_view BEGIN = "application/vnd.kesa.v";
    constexpr std::string_view END = "+json";
    if (range.size() <= BEGIN.size() + END.size() || !equalsIgnoringCase(range.substr(0, BEGIN.size()), BEGIN) ||
        !equalsIgnoringCase(range.substr(range.size() - END.size()), END))
        return false;
    const std::string_view version = range.substr(BEGIN.size(), range.size() - BEGIN.size() - END.size());
    return version.find_first_not_of("0123456789.") == std::string_view::npos;
}

} // namespace

bool acceptsJson(const Poco::Net::HTTPMessage& request)
{
    int closest = 0;
    bool isAccepted = !request.has("Accept");
    for (auto field = request.find("Accept"); field != request.end() && equalsIgnoringCase(field->first, "Accept");
         ++field)
    {
        std::string_view rest = field->second;
        while (!rest.empty())
        {
            std::string_view parameters = cutFirst(rest, ',');
            const std::string_view range = cutFirst(parameters, ';');
            if (isVendorType(range) && !isExcluded(parameters))
                return true;
            if (closeness(range) > closest) // the closest range decides, wherever it stands
            {
                closest = closeness(range);
                isAccepted = !isExcluded(parameters);
            }
        }
    }
    return isAccepted;
}

} // namespace Kesa::Host
