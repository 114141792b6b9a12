#include "tools/statusctl/documents.h"

#include <string>

#include "tools/statusctl/input_error.h"
#include "tools/statusctl/printable.h"

namespace statusctl {

std::size_t document_named(std::string_view name)
{
    std::string names;
    for (std::size_t i = 0; i < std::size(status_documents); ++i) {
        const std::string known(status_documents[i].name);
        if (name == known || name == known + ".json") {
            return i;
        }
        names += " " + known;
    }
    throw InputError("there is no document " + printable(name) + "; there are" + names);
}

}  // namespace statusctl
