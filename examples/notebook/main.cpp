// Notes that clients write, change and delete over HTTP and follow over a websocket, kept in a file.
#include <DataAccessTrigger.h>
#include <GenericServiceBootstrap.h>
#include <ServiceHost.h>
#include <SqliteDataAccessPoint.h>

#include <CLI/CLI.hpp>
#include <Poco/Exception.h>
#include <iostream>

// The members of a note, as a JSON Schema. Clients find them in /notebook/$spec.
const char NOTE[] = R"({"type":"object","properties":{
    "text":{"type":"string","description":"What is to be remembered"},
    "tags":{"type":"array","items":{"type":"string"}},
    "done":{"type":"boolean"}}})";

class Notebook: public Kesa::Service::GenericServiceBootstrap
{
public:
    explicit Notebook(const std::string& file): m_store(new Kesa::Host::SqliteDataAccessPoint(file))
    {
        m_store->addService("notebook", "What I want to remember");
        m_store->addResource("notebook", "notes", "Notes, each on its own", NOTE);
    }
    ~Notebook() override { shutdown(); }

protected:
    bool startupImpl() override { return true; }
    bool shutdownImpl() override { return true; }
    Poco::SharedPtr<Kesa::Service::SubscriptionTrigger> createSubscriptionInterface() override
    {
        return new Kesa::Host::DataAccessTrigger(m_store); // answers from the store, and reports what clients change
    }

private:
    Kesa::Host::SqliteDataAccessPoint::Ptr m_store;
};

int main(int argc, char** argv)
{
    std::string file = "notebook.db";
    Kesa::Host::ServiceHost::Options options;
    options.port = 8940;
    options.name = "notebook";
    CLI::App app("A notebook that clients write in and follow");
    app.add_option("--file", file, "Where the notes are kept")->capture_default_str();
    app.add_option("--port", options.port, "Port to listen on; 0 lets the system choose one")->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    try
    {
        Notebook notebook(file);
        return Kesa::Host::ServiceHost(notebook, options).run(); // until SIGTERM or SIGINT
    }
    catch (const Poco::Exception& error)
    {
        std::cerr << "notebook: " << error.message() << std::endl;
        return 1;
    }
}
