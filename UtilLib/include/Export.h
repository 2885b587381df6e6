#pragma once

/// Marks a class or function that other modules use, so that a program built with hidden visibility shares its type
/// information and its static data with the library.
#define KESA_API __attribute__((visibility("default")))
