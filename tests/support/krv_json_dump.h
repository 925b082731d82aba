// A plain rendering of a JSON tree, for comparing trees built along different paths.
#ifndef KRV_JSON_DUMP_H
#define KRV_JSON_DUMP_H

#include <string>

#include "krv_json.h"

namespace krvtest {

// Appends type, key and value of node and of everything below it, in document order.
inline void JsonDump(const KrvJson *node, std::string *out)
{
    out->append(std::to_string(node->valueType)).append(node->key).push_back('\x01');
    if (node->valueType == KRV_JSON_STRING) {
        out->append(node->stringValue);
    } else if (node->valueType == KRV_JSON_NUMBER) {
        out->append(reinterpret_cast<const char *>(&node->numberValue), sizeof node->numberValue);
    } else if (node->valueType == KRV_JSON_ARRAY) {
        out->append(std::to_string(node->arrType) + ":" + std::to_string(node->arrLen));
    }
    out->push_back('(');
    if (node->valueType != KRV_JSON_STRING) {
        for (const KrvJsonChild *link = node->child; link != nullptr; link = link->next) {
            JsonDump(link->item, out);
        }
    }
    out->push_back(')');
}

inline std::string JsonDump(const KrvJson *node)
{
    std::string out;
    JsonDump(node, &out);
    return out;
}

}  // namespace krvtest

#endif  // KRV_JSON_DUMP_H
