#include "platform/archive/PlistChildren.h"

#include <cstdlib>

namespace tessel {

PlistChildren::PlistChildren(plist_t container)
    : _container(container)
    , _isDictionary(plist_get_node_type(container) == PLIST_DICT)
{
    if (_isDictionary)
        plist_dict_new_iter(container, &_iterator);
    else
        plist_array_new_iter(container, &_iterator);
}

PlistChildren::~PlistChildren() { free(_iterator); }

plist_t PlistChildren::next()
{
    plist_t child = nullptr;
    if (_isDictionary)
        plist_dict_next_item(_container, _iterator, nullptr, &child);
    else
        plist_array_next_item(_container, _iterator, &child);
    return child;
}

} // namespace tessel
