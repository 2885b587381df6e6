#pragma once

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

namespace Kesa::Command
{
class RequestBase;
class ResponseObject;
} // namespace Kesa::Command

namespace SystemMonitor
{

/// Answers with those of `elements` that the request's query asks for: the search selects, `$sortby` orders, `$offset`
/// and
/// `$limit` cut out a page, `$fields` selects members. A list without paging ends after 500 elements, and its paging
/// block says so. The elements themselves are shared and not changed.
void answerList(const Poco::JSON::Array::Ptr& elements, const Kesa::Command::RequestBase& request,
                Kesa::Command::ResponseObject& response);

/// Answers with `element`, or with those of its members that the request's `$fields` asks for.
void answerElement(const Poco::JSON::Object::Ptr& element, const Kesa::Command::RequestBase& request,
                   Kesa::Command::ResponseObject& response);

} // namespace SystemMonitor
