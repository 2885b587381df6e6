// A process that changes a store until it is killed: step n inserts the element n, changes the element n - 1 and
// deletes the element n - 2. Every change is printed once the store has acknowledged it.
#include <SqliteDataAccessPoint.h>

#include <cstdlib>
#include <iostream>

namespace
{
std::string idOf(int n)
{
    const std::string digits = std::to_string(100000000000 + n);
    return "6ba7b810-9dad-11d1-80b4-" + digits;
}

void report(const std::string& what, int n, const Kesa::Host::SqliteDataAccessPoint::UpdateResult& result)
{
    if (!result.success())
        std::exit(EXIT_FAILURE);
    std::cout << what << ' ' << n << std::endl;
}
} // namespace

int main(int, char** arguments)
{
    Kesa::Host::SqliteDataAccessPoint store(arguments[1]);
    store.addService("shop");
    store.addResource("shop", "boxes");
    const Kesa::Data::ElementCollection before = store.getElements("shop", "boxes");
    int n = before.empty() ? 0 : std::stoi(before.back()->getName());
    std::cout << "ready" << std::endl;
    for (;;)
    {
        Poco::JSON::Object::Ptr box = new Poco::JSON::Object;
        box->set("name", std::to_string(++n)).set("filling", std::string(2000, 'x'));
        report("insert", n, store.insertElement(Poco::URI("/shop/boxes/" + idOf(n)), box));
        Poco::JSON::Object::Ptr change = new Poco::JSON::Object;
        change->set("changed", true);
        if (n > 1 && !store.getElement("shop", "boxes", idOf(n - 1)).isNull())
            report("update", n - 1, store.updateElement("shop", "boxes", idOf(n - 1), change));
        if (n > 2 && !store.getElement("shop", "boxes", idOf(n - 2)).isNull())
            report("delete", n - 2, store.deleteElement("shop", "boxes", idOf(n - 2)));
    }
}
