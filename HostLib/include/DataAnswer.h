#pragma once

#include "DataRow.h"

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <string>
#include <vector>

namespace Kesa::Command
{
class RequestBase;
class ResponseObject;
} // namespace Kesa::Command

namespace Kesa::Host
{

/// What a read gives: one object, a list with or without a paging block, or a refusal. The same answer fills a
/// notification and makes the text of an HTTP response.
///
/// Ownership: shares the objects.
/// Threads:   one thread at a time.
class KESA_API DataAnswer
{
public:
    /// `code` is an HTTP status from 400 to 599; `message` says what was wrong.
    static DataAnswer refusal(int code, const std::string& message);
    /// The object, or those of its members that the request's `$fields` asks for.
    static DataAnswer element(const DataRow& row, const Command::RequestBase& request);
    /// Those of `rows` that the request asks for: the search selects, `$sortby` orders, `$offset` and `$limit` cut out
    /// a page, `$fields` selects members. A list without paging ends after Paging::PAGING_LIMIT_MAX objects, and its
    /// paging block says so. A criterion that is invalid is skipped.
    static DataAnswer list(std::vector<DataRow> rows, const Command::RequestBase& request);

    /// The HTTP status: 200, or that of the refusal.
    int code() const { return m_code; }
    bool isRefused() const { return m_code != 200; }
    /// Why it is refused.
    const std::string& message() const { return m_message; }
    bool isList() const { return m_isList; }
    /// The objects: those of the list, or the one.
    const std::vector<DataRow>& rows() const { return m_rows; }
    std::vector<DataRow>& rows() { return m_rows; }
    /// Makes it the data of `response`, or a refusal its error status.
    void fill(Command::ResponseObject& response) const;
    /// The text of an HTTP answer, `{"data":...,"paging":...,"status":"ok"}`; not for a refusal.
    std::string toJsonString() const;

private:
    /// A member that `$fields` names.
    struct Field
    {
        std::string name;
        std::string prefix; ///< what stands before its value in a text: `"name":`
    };

    DataAnswer() = default;
    void select(const Command::RequestBase& request);
    template <class Action>
    void forEachSelected(const Poco::JSON::Object& object, Action action) const;
    Poco::JSON::Object::Ptr selected(const DataRow& row) const;
    void appendRow(std::string& out, const DataRow& row) const;

    int m_code = 200;
    std::string m_message;
    bool m_isList = false;
    std::vector<DataRow> m_rows;
    bool m_selects = false;           ///< only the members in m_fields belong to the answer
    std::vector<Field> m_fields;      ///< in the order of their names
    Poco::JSON::Object::Ptr m_paging; ///< null: no paging block
};

} // namespace Kesa::Host
