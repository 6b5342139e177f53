// The scoring engine as the client library shows it to those who load it at run time: the export number 1,
// `GetEngine`, and what it returns. Fixed in every detail, since both sides are built apart.
#pragma once

#include <array>
#include <cstdint>

namespace tvr {

// {data1-data2-data3-data4}
struct interface_id {
    std::uint32_t data1;
    std::uint16_t data2, data3;
    std::array<std::uint8_t, 8> data4;

    bool operator==(const interface_id&) const = default;
};
static_assert(sizeof(interface_id) == 16);

inline constexpr interface_id component_id = {0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr interface_id score_engine_id = {
    0x339EBB63, 0x410B, 0x470F, {0x92, 0xEC, 0xC7, 0xCD, 0xF3, 0xEC, 0x51, 0xC5}};

// The order of the operations is fixed; there is no virtual destructor, which would come between them.
// Results are negative for failure.
class component {
public:
    // Fills `object` with a new reference, or with null if there is no such interface.
    virtual std::int32_t query_interface(const interface_id& id, void** object) = 0;
    // Both return the number of references; with the last one the object goes.
    virtual std::uint32_t add_reference() = 0;
    virtual std::uint32_t release() = 0;

protected:
    ~component() = default;
};

class score_engine : public component {
public:
    // Fills `score` with the grade of a token (zero-terminated). 1: the token has none. Negative: there is
    // no base.
    virtual std::int32_t lookup(const char* token, float* score) = 0;

protected:
    ~score_engine() = default;
};

// Fills `engine` with a new reference.
using get_engine = std::int32_t(component** engine);

namespace engine_answer {
constexpr std::int32_t known = 0;
constexpr std::int32_t unknown = 1;
constexpr auto no_interface = static_cast<std::int32_t>(0x80004002);
constexpr auto bad_pointer = static_cast<std::int32_t>(0x80004003);
constexpr auto failure = static_cast<std::int32_t>(0x80004005);
} // namespace engine_answer

} // namespace tvr
