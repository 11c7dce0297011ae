#pragma once

// For the private part of a class that is neither copied nor assigned.
// NOLINTBEGIN(bugprone-macro-parentheses): a class name takes none
#define DISALLOW_EVIL_CONSTRUCTORS(name) \
    name(const name&) = delete;          \
    name& operator=(const name&) = delete
// NOLINTEND(bugprone-macro-parentheses)
