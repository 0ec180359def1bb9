#pragma once

// Reading of fixed-size arrays. `_array_fromJson` is instantiated in the source of each element type, so that
// the base includes no record.

#include <Telvane/TelvaneDataTypeBase.h>

#include <type_traits>

namespace Telvane
{

/// Reports an element that could not be read in one line, and the name of \p input, if it has one, in
/// another.
void reportArrayElement(const cJSON& item, int size, int index, const cJSON& input);

/// Reads all elements.
/// \param readElement called with each element and its index; returns false on failure
template <class ReadElement>
bool readArray(const cJSON* array, unsigned int capacity, const cJSON* input, ReadElement readElement)
{
    if (cJSON_IsArray(array) == 0) {
        return false;
    }
    const int size = cJSON_GetArraySize(array);
    if (size < 1 || static_cast<unsigned int>(size) > capacity) {
        return false;
    }
    int index = 0;
    for (cJSON* item = array->child; item != nullptr; item = item->next, ++index) {
        if (!readElement(item, index)) {
            reportArrayElement(*item, size, index, *input);
            return false;
        }
    }
    return true;
}

template <typename T>
bool TelvaneDataTypeBase::_array_fromJson(const std::string& field_name, T* target, unsigned int capacity,
                                          cJSON* input)
{
    const cJSON* const array = cJSON_GetObjectItem(input, field_name.c_str());
    return target != nullptr && readArray(array, capacity, input, [&](cJSON* item, int index) {
               if constexpr (std::is_base_of_v<TelvaneDataTypeBase, T>) {
                   T element;
                   if (!_readFromJsonItem(item, &element)) {
                       return false;
                   }
                   target[index] = element;
                   return true;
               } else {
                   return _readFromJsonItem(item, target[index]);
               }
           });
}

} // namespace Telvane

/// Instantiates `_array_fromJson` for elements of type \p T.
#define TELVANE_DEFINE_ARRAY_READER(T)                                                                       \
    template TELVANE_EXPORT bool TelvaneDataTypeBase::_array_fromJson<T>(const std::string&, T*,             \
                                                                         unsigned int, cJSON*);
