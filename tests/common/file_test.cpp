// Streams, headers, mappings, packed files and the helpers around files.
#include <array>
#include <random>

#include "common/file_stream.h"
#include "common/fileheader.h"
#include "common/filemap.h"
#include "common/files.h"
#include "common/zfile.h"
#include "platform/change_hook.h"
#include "support/log_lines.h"
#include "support/test.h"

namespace tvr {
namespace {

using namespace std::literals;
using platform::origin;

class files : public testing::Test {
protected:
    [[nodiscard]] std::string at(const std::string& name) const { return root.engine_path(name); }
    void put(const std::string& bytes) {
        stream.close(); // else the file can't be written everywhere
        write_file(root.path() / "f", bytes);
    }
    [[nodiscard]] std::string get() const { return read_file(root.path() / "f"); }
    [[nodiscard]] std::string logged() { return log.take().back(); }

    test_root root;
    log_lines log;
    file_stream stream;
};

// --- streams ---

// Every operation does to the stream what it does to a plain string with a position.
TEST_F(files, a_stream_is_a_string_with_a_position) {
    constexpr auto most = static_cast<std::uint32_t>(file_stream::buffer_size) * 5 / 2;
    for (unsigned seed = 1; seed <= 12; ++seed) {
        std::minstd_rand random(seed);
        std::string model(random() % most, 'm');
        put(model);
        std::size_t place = 0;
        ASSERT_TRUE(stream.open(at("f"), platform::access::read_write, platform::share::read,
                                platform::creation::open_existing));
        std::vector<char> buffer(most);
        for (int step = 0; step < 600; ++step) {
            const std::size_t size = random() % (random() % 4 == 0 ? most : 40);
            switch (random() % 8) {
            case 0:
            case 1: {
                std::size_t got = 0;
                ASSERT_TRUE(stream.read(buffer.data(), size, got));
                const std::string expected = place < model.size() ? model.substr(place, size) : "";
                ASSERT_EQ(std::string_view(buffer.data(), got), expected) << seed << ' ' << step;
                place += got;
                break;
            }
            case 2:
            case 3:
            case 4: {
                const std::string bytes(size, static_cast<char>(random()));
                ASSERT_TRUE(stream.write(bytes.data(), size));
                if (size != 0 && place > model.size())
                    model.resize(place, '\0');
                model.replace(std::min(place, model.size()), size, bytes);
                place += size;
                break;
            }
            case 5: {
                // Half of the steps are short, and so stay near the ends of the buffer.
                place = random() % 2 == 0 ? place + random() % 10 - std::min<std::size_t>(place, 5)
                                          : random() % (model.size() + 20);
                const auto distance = static_cast<std::int64_t>(place);
                const std::pair<std::int64_t, origin> ways[] = {
                    {distance, origin::begin},
                    {distance - static_cast<std::int64_t>(stream.position()), origin::current},
                    {distance - static_cast<std::int64_t>(model.size()), origin::end}};
                const auto& [offset, from] = ways[random() % 3];
                ASSERT_EQ(stream.seek(offset, from), place);
                break;
            }
            case 6:
                if (random() % 8 == 0) {
                    ASSERT_TRUE(stream.set_end());
                    model.resize(place, '\0');
                }
                ASSERT_FALSE(stream.seek(-static_cast<std::int64_t>(place) - 1, origin::current));
                break;
            default:
                ASSERT_EQ(stream.size(), model.size());
                if (random() % 4 == 0) {
                    ASSERT_TRUE(stream.flush());
                    ASSERT_TRUE(get() == model) << seed << ' ' << step;
                }
            }
            ASSERT_EQ(stream.position(), place) << seed << ' ' << step;
        }
        ASSERT_TRUE(stream.close());
        ASSERT_TRUE(get() == model) << seed;
    }
}

std::uint32_t disk_is_full(platform::change what, std::string_view) {
    return what == platform::change::write_file ? platform::error::disk_full : 0;
}

TEST_F(files, lost_writes_are_told) {
    for (const std::size_t size : {std::size_t{1}, file_stream::buffer_size, file_stream::buffer_size + 1}) {
        SCOPED_TRACE(size);
        ASSERT_TRUE(stream.create_to_write(at("f")));
        platform::set_change_hook(disk_is_full);
        EXPECT_TRUE(failed_with(platform::error::disk_full,
                                stream.write(std::string(size, 'x').data(), size) && stream.flush()));
        platform::set_change_hook(nullptr);
        // What was lost is not forgotten when later writes succeed.
        EXPECT_TRUE(stream.write("y", 1));
        EXPECT_FALSE(stream.close());
    }
    ASSERT_TRUE(stream.create_to_write(at("f")));
    EXPECT_TRUE(stream.write("y", 1) && stream.close());
    ASSERT_TRUE(stream.open_to_read(at("f")));
    EXPECT_TRUE(failed_with(platform::error::access_denied, stream.write("y", 1)));
}

// --- headers ---

constexpr std::uint32_t marker = 0xCCCCCCCC;
constexpr std::uint32_t own_signature = 0x12345678;

TEST_F(files, headers_take_what_both_sides_know) {
    using four = std::array<std::uint32_t, 4>;
    constexpr four before = {5, 6, 7, 8};
    struct {
        const char* what;
        std::string bytes;
        std::uint32_t signature;
        std::uint32_t hint;
        bool result;    // of a read from a file
        bool in_memory; // and from memory, where there is no hint, and nothing may be missing
        four values;
        std::int64_t position;
    } const table[] = {
        {"equal", le(own_signature, 4, 1, 2, 3, 9, marker), own_signature, 0, true, true, {1, 2, 3, 9}, 24},
        {"fewer", le(own_signature, 3, 1, 2, 3, marker), own_signature, 0, true, true, {1, 2, 3, 8}, 20},
        {"none", le(own_signature, 0, marker), own_signature, 0, true, true, before, 8},
        {"more", le(own_signature, 5, 1, 2, 3, 4, 5, marker), own_signature, 0, true, true, {1, 2, 3, 4}, 28},
        {"foreign", le(own_signature, 3, 1, 2, 3, marker), own_signature + 1, 0, false, false, before, 0},
        {"hint", le(3, 1, 2, 3, marker), own_signature, 3, true, false, {1, 2, 3, 8}, 16},
        {"other hint", le(3, 1, 2, 3, marker), own_signature, 2, false, false, before, 0},
        {"both", le(own_signature, 1, 1, marker), own_signature, 3, true, true, {1, 6, 7, 8}, 12},
        {"cut between", le(own_signature, 3, 1), own_signature, 0, true, false, {1, 6, 7, 8}, 12},
        {"too many", le(own_signature, 31).append(124, '1'), own_signature, 0, false, false, before, 8},
        {"far too many", le(own_signature, 0xFFFFFFFF, 1), own_signature, 0, false, false, before, 8},
        {"empty", "", own_signature, 0, false, false, before, 0},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        put(row.bytes);
        four values{};
        fileheader header(row.signature);
        header.add(values[0], 5).add(values[1], 6).add(values[2], 7).add(values[3], 8);
        EXPECT_EQ(values, before);
        ASSERT_TRUE(stream.open_to_read(at("f")));
        EXPECT_EQ(header.read(stream, row.hint), row.result);
        EXPECT_EQ(values, row.values);
        EXPECT_EQ(stream.position(), row.position);

        fileheader second(row.signature);
        for (std::uint32_t& value : values)
            second.add(value, 0);
        values = before;
        const std::string bytes = le(0) + row.bytes;
        std::size_t position = 4;
        EXPECT_EQ(second.read({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, position),
                  row.in_memory);
        EXPECT_EQ(values, row.in_memory ? row.values : before);
        EXPECT_EQ(position, row.in_memory ? row.position + 4 : 4);
    }
}

TEST_F(files, headers_under_a_foreign_signature) {
    put(le(own_signature, 1, 7, marker));
    std::uint32_t value = 0;
    fileheader header(own_signature + 1);
    header.add(value, 0);
    ASSERT_TRUE(stream.open_to_read(at("f")));
    EXPECT_FALSE(header.readheader_s(stream, own_signature + 2));
    EXPECT_EQ(header.signature, own_signature + 1);
    EXPECT_TRUE(header.readheader_s(stream, own_signature));
    EXPECT_EQ(header.signature, own_signature + 1);
    EXPECT_EQ(value, 7U);
    EXPECT_TRUE(stream.read_u32(value));
    EXPECT_EQ(value, marker);
}

TEST_F(files, headers_hold_thirty_values) {
    std::array<std::uint32_t, 31> values{};
    values[30] = 77;
    fileheader header(own_signature);
    std::string expected = le(own_signature, 30);
    for (std::uint32_t i = 0; i < 31; ++i)
        header.add(values[i], 1000 + i);
    EXPECT_EQ(logged(), "[-] fileheader overloaded!");
    EXPECT_EQ(header.count(), 30U);
    EXPECT_EQ(values[30], 77U);
    for (std::uint32_t i = 0; i < 30; ++i)
        expected += le(i == 29 ? 5 : 1000 + i);
    values[29] = 5;
    ASSERT_TRUE(stream.create_to_write(at("f")));
    EXPECT_TRUE(header.write(stream) && stream.close());
    EXPECT_EQ(get(), expected);
    ASSERT_TRUE(stream.open_to_read(at("f")));
    EXPECT_TRUE(header.read(stream) && stream.position() == 128);
    fileheader empty(1);
    ASSERT_TRUE(stream.create_to_write(at("f")));
    EXPECT_TRUE(empty.write(stream) && stream.close());
    EXPECT_EQ(get(), le(1, 0));
}

TEST_F(files, headers_are_written_to_memory) {
    std::uint32_t value = 0;
    fileheader header(own_signature);
    header.add(value, 9);
    std::array<std::uint8_t, 16> room{};
    std::size_t position = 4;
    EXPECT_TRUE(header.write(room, position));
    EXPECT_EQ(position, 16U);
    EXPECT_EQ(std::string(room.begin(), room.end()), le(0, own_signature, 1, 9));
    position = 5;
    EXPECT_FALSE(header.write(room, position));
    EXPECT_EQ(position, 5U);
}

// --- mappings ---

TEST_F(files, mappings) {
    std::uint64_t before = 7;
    {
        write_map made(at("f"), 1024, &before);
        ASSERT_TRUE(made.is_valid());
        EXPECT_EQ(before, 0U);
        EXPECT_EQ(get(), std::string(1024, '\0'));
        *made.at(1023) = 'z';
        EXPECT_TRUE(made.resize(2048));
        EXPECT_EQ(*made.at(1023), 'z');
        EXPECT_EQ(made.offset_of(made.at(5)), 5U);
        const read_map reader(at("f"), 0, &before);
        EXPECT_FALSE(reader.is_valid()) << "the writer shares reading alone";
    }
    const read_map reader(at("f"), 0, &before);
    EXPECT_EQ(reader.size(), 2048U);
    EXPECT_EQ(before, 2048U);
    read_map larger(at("f"));
    EXPECT_TRUE(larger.is_valid());
    EXPECT_FALSE(larger.resize(4096));
    EXPECT_EQ(logged(), "[-] myfilemap_T failed to resize filemapping. Error is 8");
    EXPECT_TRUE(!larger.is_valid() && larger.is_file_open() && larger.bytes().empty());
    write_file(root.path() / "empty", "");
    const read_map empty(at("empty"));
    EXPECT_FALSE(empty.is_valid());
    EXPECT_EQ(logged(), "[-] filemap__ failed to map file. Error is 1006");
    EXPECT_FALSE(read_map(at("no")).is_valid());
}

TEST_F(files, helpers) {
    put("\3abc\5de");
    ASSERT_TRUE(stream.open_to_read(at("f")));
    std::string text = "kept";
    for (const auto& [whole, found] : {std::pair(true, "abc"), {false, "de"}, {false, "de"}}) {
        EXPECT_EQ(read_short_string(stream, text), whole);
        EXPECT_EQ(text, found);
    }
    stream.close();
    EXPECT_EQ(file_size(at("f")), 7U);
    EXPECT_EQ(file_size(""), no_file_size);
    EXPECT_EQ(file_size(at("no")), no_file_size);

    write_file(root.path() / "g", "other");
    EXPECT_FALSE(link_or_copy(at("f"), at("g"), true));
    EXPECT_FALSE(link_or_copy(at("no"), at("h"), false));
    EXPECT_TRUE(link_or_copy(at("f"), at("g"), false));
    EXPECT_EQ(read_file(root.path() / "g"), "\3abc\5de");
    EXPECT_TRUE(link_or_copy(at("f"), at("h"), true));
    put("new");
    EXPECT_EQ(read_file(root.path() / "h"), "new") << "no link";
}

// --- packed files ---

// A zlib stream of one stored block: head 78 01, block 01 with its length and the complement, the bytes, and
// the Adler-32 sum: of five bytes "a", 1 + 5 * 97 = 0x01E6 below and 5 + 97 * 15 = 0x05B4 above.
const std::string stored = "\x78\x01\x01\x05\x00\xfa\xff"
                           "aaaaa\x05\xb4\x01\xe6"s;
constexpr std::uint32_t packed_signature = 0x26072105;

TEST_F(files, packed_files_are_restored) {
    const std::string cut = stored.substr(0, stored.size() - 4);
    const std::tuple<const char*, std::string, bool, std::string> table[] = {
        {"packed", le(packed_signature, 2, 5, 16) + stored, true, "aaaaa"},
        {"packed without the sum", le(packed_signature, 2, 5, 16) + cut, true, "aaaaa"},
        {"plain", le(5) + "hello", true, "hello"},
        {"plain and empty", le(0), true, ""},
        {"a stream of other bytes", le(packed_signature, 2, 3, 4) + "text", true, "\0\0\0"s},
        {"plain but cut", le(6) + "hello", false, ""},
        {"plain and lying", le(0xFFFFFFFF) + "hello", false, ""},
        {"packed and lying", le(packed_signature, 2, 0xFFFFFFFF, 16) + stored, false, ""},
        {"stream and lying", le(packed_signature, 2, 5, 0xFFFFFFFF) + stored, false, ""},
        {"a head of too many values", le(packed_signature, 31, 3) + std::string(200, 'x'), false, ""},
        {"nothing", "", false, ""},
        {"half a size", "\5\0"s, false, ""},
    };
    zlib_loader loader;
    ASSERT_TRUE(loader.load("zlib1.dll") && loader.load("zlib.dll"));
    for (const auto& [what, bytes, restored, content] : table) {
        SCOPED_TRACE(what);
        put(bytes);
        ASSERT_TRUE(stream.open_to_read(at("f")));
        platform::delete_file(at("g"));
        EXPECT_EQ(loader.restore_file(stream, at("g")), restored);
        EXPECT_EQ(read_file(root.path() / "g"), content);
        EXPECT_EQ(platform::get_attributes(at("g")).has_value(), restored);
    }
}

TEST_F(files, packing_falls_back_on_the_plain_form) {
    std::string bytes;
    for (int i = 0; i < 3000; ++i)
        bytes += static_cast<char>('a' + i % 7 + i / 500);
    for (const bool with_library : {true, false}) {
        zlib_loader loader;
        EXPECT_EQ(with_library && loader.load("zlib1.dll"), with_library);
        put(bytes);
        ASSERT_TRUE(stream.create_to_write(at("z")));
        EXPECT_TRUE(loader.compress_file(at("f"), stream) && stream.close());
        const std::string packed = read_file(root.path() / "z");
        if (with_library) {
            EXPECT_EQ(packed.substr(0, 12), le(packed_signature, 2, 3000));
            // The last 16 bytes of the stream are left out, as many as the head has.
            EXPECT_EQ(packed.substr(12, 4), le(packed.size()));
        } else {
            EXPECT_EQ(packed, le(3000) + bytes);
        }
        ASSERT_TRUE(stream.open_to_read(at("z")));
        EXPECT_TRUE(loader.restore_file(stream, at("g")));
        const std::string restored = read_file(root.path() / "g");
        const std::size_t sure = with_library ? 1000 : 3000;
        EXPECT_EQ(restored.size(), 3000U);
        EXPECT_EQ(restored.substr(0, sure), bytes.substr(0, sure));
        EXPECT_FALSE(loader.compress_file(at("no"), stream));
    }
    EXPECT_EQ(zlib_loader::bound(0), 396U);
    EXPECT_EQ(zlib_loader::bound(2999), 2999U + 2 + 396);
}

TEST_F(files, packed_blocks_in_memory) {
    const auto bytes = [](const std::string& text) {
        return std::vector<std::uint8_t>(text.begin(), text.end());
    };
    zlib_loader loader;
    std::array<std::uint8_t, 8> room{};
    std::uint32_t size = room.size();
    const auto packed = bytes(le(packed_signature, 2, 5, 16) + stored);
    EXPECT_FALSE(loader.uncompress_block(packed, room.data(), size)) << "without a library";
    EXPECT_FALSE(loader.load("tvr_no_such.dll"));
    EXPECT_EQ(logged(), "[-] unable to load tvr_no_such.dll library");
    ASSERT_TRUE(loader.load("zlib.dll"));
    EXPECT_TRUE(loader.uncompress_block(packed, room.data(), size));
    EXPECT_EQ(std::string(room.begin(), room.begin() + size), "aaaaa");
    EXPECT_EQ(zlib_loader::unpacked_size(packed), 5U);
    EXPECT_EQ(zlib_loader::unpacked_size(bytes(le(5) + "aaaaa")), 0U);
    size = 4;
    EXPECT_FALSE(loader.uncompress_block(packed, room.data(), size));
    size = 8;
    EXPECT_FALSE(loader.uncompress_block(bytes(le(packed_signature, 2, 5, 99) + stored.substr(0, 9)),
                                         room.data(), size));
    std::array<std::uint8_t, 64> target{};
    size = 2;
    EXPECT_FALSE(loader.compress_block(bytes("aaaaa"), target.data(), size));
    EXPECT_EQ(logged(), "[-] calling compress returned -5 as the result");
}

} // namespace
} // namespace tvr
