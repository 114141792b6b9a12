/// What a person or a program gave to the tool and the tool can't use.
#pragma once

#include <stdexcept>

namespace statusctl {

/// Its text is one line that says what is wrong; `main` prints it and ends with status 2.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace statusctl
