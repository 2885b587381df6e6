#pragma once

#include <Data/MicroServiceInfo.h>

namespace Kesa::Test
{

inline const std::string FIRST_ID = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
inline const std::string SECOND_ID = "6ba7b811-9dad-11d1-80b4-00c04fd430c8";
inline const std::string THIRD_ID = "6ba7b812-9dad-11d1-80b4-00c04fd430c8";

/// The entry of a service of this name on this port; without an id unless there is one.
inline MicroServiceInfo entryOf(const std::string& name, const std::string& id = "", long port = 8080)
{
    MicroServiceInfo entry;
    entry.setName(name);
    entry.setUri("/" + name);
    entry.setAttribute(new Data::Attribute<Data::AttributeValueStringable<std::string>>(
        Data::INVALID_XOBJ_ID, "host", Data::AttributeValueStringable<std::string>("127.0.0.1")));
    entry.setAttribute(new Data::Attribute<Data::AttributeValuePlain<long>>(Data::INVALID_XOBJ_ID, "port",
                                                                            Data::AttributeValuePlain<long>(port)));
    if (!id.empty())
        entry.setId(id);
    return entry;
}

/// The JSON of that entry, as a registry sends it.
inline std::string jsonOf(const std::string& name, const std::string& id)
{
    return R"({"host":"127.0.0.1","id":")" + id + R"(","name":")" + name + R"(","port":8080,"uri":"/)" + name + R"("})";
}

} // namespace Kesa::Test
