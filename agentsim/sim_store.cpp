// The simulator's configuration store.
#include "agentsim/sim_store.h"

const SimRecord *SimStore::Find(RecordKind kind, const SimKey &key) const {
    const SimTable &table = Table(kind);
    auto it = table.find(key);
    return it == table.end() ? nullptr : &it->second;
}

void SimStore::Clear() {
    for (SimTable &table : tables_) {
        table.clear();
    }
}

SimKeyBuilder &SimKeyBuilder::Text(const uint8_t *field, size_t size) {
    size_t n = 0;
    while (n < size && field[n] != 0) {
        ++n;
    }
    key_.append(reinterpret_cast<const char *>(field), n);
    return *this;
}

SimKeyBuilder &SimKeyBuilder::Put(uint64_t v, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) {
        key_.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
    }
    return *this;
}
