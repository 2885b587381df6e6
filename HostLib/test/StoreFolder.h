#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <stdlib.h>
#include <string>

/// A directory for the files of stores, gone at the end.
class StoreFolder
{
public:
    StoreFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "kesa-store-XXXXXX").string();
        if (!::mkdtemp(name.data()))
            throw std::runtime_error("no directory for the test");
        m_path = name;
    }
    ~StoreFolder() { std::filesystem::remove_all(m_path); }
    StoreFolder(const StoreFolder&) = delete;
    StoreFolder& operator=(const StoreFolder&) = delete;

    std::string file(const std::string& name) const { return (m_path / name).string(); }
    /// The name of a file that is not there yet.
    std::string newFile() const
    {
        static int count = 0;
        return file("store-" + std::to_string(++count) + ".db");
    }
    /// The names of all files.
    std::set<std::string> names() const
    {
        std::set<std::string> names;
        for (const auto& entry: std::filesystem::directory_iterator(m_path))
            names.insert(entry.path().filename().string());
        return names;
    }

    static std::string read(const std::string& file)
    {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    static void write(const std::string& file, const std::string& content)
    {
        std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
    }

private:
    std::filesystem::path m_path;
};
