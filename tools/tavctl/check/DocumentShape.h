// The outer form of a configuration document. What does not have it is passed over by the library without a word.
#ifndef TAVCTL_DOCUMENTSHAPE_H
#define TAVCTL_DOCUMENTSHAPE_H

#include <jansson.h>

#include <functional>
#include <string>

namespace tavctl {

// `kind`: "unused" for a member that is not known, "document" for one of another type than is read.
using TellShape = std::function<void(const std::string &pointer, const char *kind, const std::string &text)>;

// Tells of every member of the document, its operations and object entries that is not read. What the library itself refuses (entries
// without name or type, properties, unknown kinds of relationships) is not told here.
void checkShape(const json_t *document, const TellShape &tell);

} // namespace tavctl

#endif
