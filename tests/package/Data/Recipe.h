#pragma once

#include <string>

/// What the stranger's service offers.
struct Recipe
{
    std::string name;
    int minutes;
};
