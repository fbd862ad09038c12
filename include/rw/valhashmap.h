// rw/valhashmap.h - stand-in for the class library's hash map, over std::unordered_map.

#ifndef KOR_RW_VALHASHMAP_H
#define KOR_RW_VALHASHMAP_H

#include <cstddef>
#include <functional>
#include <unordered_map>

/// Values by unique keys. Not synchronised.
template <class K, class V, class Hash, class Equal = std::equal_to<K>>
class RWTValHashMap
{
public:
    explicit RWTValHashMap(std::size_t buckets = 64, const Hash& hash = Hash()) : m_map(buckets, hash) {}

    /// False, and nothing changes, when the key is there already.
    bool insert(const K& key, const V& value) { return m_map.emplace(key, value).second; }

    /// False, and value stays, when the key is not there.
    bool findValue(const K& key, V& value) const
    {
        const auto found = m_map.find(key);
        if (found == m_map.end())
            return false;
        value = found->second;
        return true;
    }

    bool contains(const K& key) const { return m_map.find(key) != m_map.end(); }

    /// False when the key is not there.
    bool remove(const K& key) { return m_map.erase(key) != 0; }

    std::size_t entries() const noexcept { return m_map.size(); }

private:
    std::unordered_map<K, V, Hash, Equal> m_map;
};

#endif // KOR_RW_VALHASHMAP_H
