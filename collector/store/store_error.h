// store_error.h - the error for a store that cannot be opened, read or written. Its text is for people and holds no password.
#pragma once

#include <stdexcept>

class store_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
