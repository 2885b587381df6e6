#include "ServicesCommand.h"

#include "LineOutput.h"
#include "MessagePrinter.h"
#include "ServiceDirectory.h"

#include <Poco/Exception.h>

#include <algorithm>

namespace Kesa::Client
{
namespace
{

using Entry = ServiceDirectory::Entry;

/// The text with nothing in it that a terminal would obey.
std::string printable(const std::string& text)
{
    const std::string compact = MessagePrinter::compact(text);
    return compact.front() == '"' ? compact.substr(1, compact.size() - 2) : compact;
}

std::vector<std::string> columnsOf(const Entry& entry)
{
    return {printable(entry.name), printable(entry.address), printable(entry.id)};
}

std::string join(const std::vector<std::string>& columns, const std::vector<std::size_t>& widths)
{
    std::string line;
    for (std::size_t i = 0; i < columns.size(); ++i)
    {
        const std::size_t width = i + 1 < columns.size() ? std::max(widths[i], columns[i].size()) + 2 : 0;
        line += columns[i] + std::string(width - std::min(width, columns[i].size()), ' ');
    }
    return line;
}

void printTable(const std::vector<Entry>& entries, LineOutput& output)
{
    std::vector<std::vector<std::string>> lines{{"NAME", "ADDRESS", "ID"}};
    std::transform(entries.begin(), entries.end(), std::back_inserter(lines), columnsOf);
    std::vector<std::size_t> widths(lines.front().size(), 0);
    for (const std::vector<std::string>& columns: lines)
        for (std::size_t i = 0; i < columns.size(); ++i)
            widths[i] = std::max(widths[i], columns[i].size());
    for (const std::vector<std::string>& columns: lines)
        output.write(join(columns, widths));
}

} // namespace

bool listServices(const ServiceUrl& registry, bool json, LineOutput& output, std::ostream& errors)
{
    const ServiceDirectory directory(registry);
    std::string document;
    std::vector<Entry> entries;
    try
    {
        if (json)
            document = directory.json();
        else
            entries = directory.list();
    }
    catch (const Poco::Exception& error)
    {
        errors << "kesa: " << error.message() << std::endl;
        return false;
    }
    if (json)
        output.write(document);
    else if (entries.empty())
        output.write("No service is registered at " + registry.authority() + ".");
    else
        printTable(entries, output);
    return true;
}

std::vector<std::string> ServiceChanges::next(const Poco::JSON::Object& message)
{
    std::map<std::string, std::string> rows;
    std::vector<std::string> lines;
    for (const Entry& entry: ServiceDirectory::entriesOf(message.get("data")))
    {
        rows[entry.id] = join(columnsOf(entry), {16, 21, 0}); // wide enough for most, since later lines are unknown
        if (m_rows.count(entry.id) == 0)
            lines.push_back("+ " + rows[entry.id]);
    }
    for (const auto& [id, row]: m_rows)
        if (rows.count(id) == 0)
            lines.push_back("- " + row);
    if (const Poco::JSON::Object::Ptr paging = message.getObject("paging"))
        lines.push_back("these are the first " + std::to_string(rows.size()) + " of " +
                        MessagePrinter::compact(paging->get("total")) + " services");
    m_rows.swap(rows);
    return lines;
}

} // namespace Kesa::Client
