// The table index against an ordered map: inline and pointer-compared keys,
// keys that differ only in length or last byte, growth, reassignment, clear.
#include "store/key_index.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace {

TEST(KeyIndex, AgreesWithAnOrderedMapThroughGrowthAndReassignment) {
    std::mt19937 rng(99);
    std::uniform_int_distribution<int> len(0, 40), ch('0', '9');
    std::map<std::string, int> oracle;  // node keys stay put: their texts back long keys
    std::vector<int> values(6000);
    tikron_store::KeyIndex<int> index;
    auto key = [&] {
        std::string k = "IF";
        for (int n = len(rng); n > 0; --n) k += static_cast<char>(ch(rng));
        return k;
    };
    for (int i = 0; i < 6000; ++i) {
        const std::string k = key();
        auto [it, fresh] = oracle.emplace(k, i);
        if (fresh) {
            index.Insert(it->first, it->first.c_str(), &values[static_cast<size_t>(i)]);
        } else {
            it->second = i;
            index.Assign(it->first, &values[static_cast<size_t>(i)]);
        }
    }
    ASSERT_EQ(oracle.size(), index.Size());
    for (const auto& [k, v] : oracle) {
        ASSERT_EQ(&values[static_cast<size_t>(v)], index.Find(k)) << k;
        // One byte more or less, or the last byte changed, is another key.
        const std::string longer = k + "0", shorter = k.substr(0, k.size() - 1);
        EXPECT_EQ(oracle.count(longer) != 0, index.Find(longer) != nullptr) << longer;
        EXPECT_EQ(oracle.count(shorter) != 0, index.Find(shorter) != nullptr) << shorter;
        std::string other = k;
        other.back() = other.back() == 'X' ? 'Y' : 'X';
        EXPECT_EQ(nullptr, index.Find(other)) << other;
    }
    index.Clear();
    EXPECT_EQ(0u, index.Size());
    EXPECT_EQ(nullptr, index.Find(oracle.begin()->first));
    index.Insert("IF2412", "IF2412", &values[0]);
    EXPECT_EQ(&values[0], index.Find("IF2412"));
    EXPECT_EQ(nullptr, index.Find(""));
}

}  // namespace
