#include "Log.h"

#include <iostream>

void Stranger::log(const std::string& text)
{
    std::cout << "stranger: " << text << std::endl;
}
