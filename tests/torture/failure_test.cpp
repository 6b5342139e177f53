// Every change of the file system fails once, and the engine goes on.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>
#include <vector>

#include "platform/file.h"
#include "support/formats.h"
#include "torture/trained_base.h"
#include "transact/training_room.h"

namespace tvr::torture {
namespace {

// Beside the engine: one transaction, and when the test lets it, the next.
void two_trainings(engine_driver& engine) {
    engine.train();
    halt();
    append_messages(trained_base::next_series, trained_base::batch);
    engine.train();
}

// The messages of a half, as the heads of its atoms have them; each atom must be whole.
std::uint32_t messages_of(const files& content, const std::string& half) {
    std::uint32_t sum = 0;
    for (const auto& [path, bytes] : content)
        if (path.starts_with(base_folder + half) && path.ends_with(".bye")) {
            const auto atom = read_atom(bytes);
            EXPECT_TRUE(atom) << path;
            sum += atom ? atom->messages : 0;
        }
    return sum;
}

files atoms_of(files content) {
    std::erase_if(content, [](const auto& file) { return !file.first.ends_with(".bye"); });
    return content;
}

bool are_equal(files one, files other) {
    one.erase(time_mark);
    other.erase(time_mark);
    return one == other;
}

constexpr const char* no_loss = "nothing is lost";
constexpr const char* delayed = "the next training takes the batch too";
constexpr const char* behind = "GAP the compiled base or the statistic is wrong until the next training";
constexpr const char* spare_atom = "GAP an atom that should have gone is still there";
constexpr const char* ids = "GAP message IDs are lost";
constexpr const char* batch = "GAP messages of the batch are lost";
constexpr const char* history = "GAP messages of the history are lost";
constexpr const char* stuck = "GAP stuck";

// Whether an atom that was there before is gone or has become smaller, without having aged out.
bool has_lost_history(const files& then) {
    const trained_base& base = the_base();
    for (const auto& [path, bytes] : atoms_of(base.after)) {
        const auto old = base.before.find(path);
        if (old == base.before.end() || word_at(bytes, 8) < word_at(old->second, 8))
            continue; // a new atom, perhaps under the name of one that has gone
        const auto found = then.find(path);
        if (found == then.end() || word_at(found->second, 8) < word_at(old->second, 8))
            return true;
    }
    return false;
}

// What a failure has cost, by the files after the transaction and those after the next one.
const char* outcome_of(const files& then, const files& last, verdict end) {
    const trained_base& base = the_base();
    if (end != verdict::rest)
        return stuck;
    if (has_lost_history(then))
        return history;
    if (are_equal(last, base.both_apart))
        return are_equal(then, base.after) ? no_loss : behind;
    if (are_equal(last, base.both_together))
        return delayed;
    if (atoms_of(last) == atoms_of(base.both_apart))
        return ids;
    for (const char* half : {"spamdict", "nspamdict"})
        if (messages_of(then, half) < messages_of(base.after, half))
            return batch;
    return spare_atom;
}

// What a failed change may cost. All others cost nothing.
struct price {
    const char* change; // a pattern
    std::vector<const char*> costs;
};

const price prices[] = {
    {"(rename|delete) .*transact/~autotrain.bys", {delayed}},
    {"make .*/0001/|create .*/0001/(dis\\*.tmp|prepared.txt)", {delayed}},
    {"sync .*/0001/(dis\\*.tmp)?", {no_loss, delayed}},
    // A file in use ends the cleaning of its folder, and a marker stays.
    {"delete .*/000[13]/prepared.txt", {no_loss, stuck}},
    {"delete .*/0002/(n?spamdict.*\\.(col|idx|bye)|prepared.txt)", {no_loss, history}},
    // A half without its plan is carried over as it is.
    {"(create|write) .*/0002/n?spamdict.col", {batch}},
    {"create .*/0002/n?spamdict....\\.bye", {batch}},
    {"create .*/000[34]/n?spamdict....\\.bye", {batch, history}},
    {"write .*/000[34]/n?spamdict....\\.bye", {batch}},
    // Nothing looks at a failed step of the publishing.
    {"rename .*/base/n?spamdict....\\.bye", {batch, history}},
    {"delete .*/base/n?spamdict....\\.bye", {no_loss, batch, spare_atom, behind}},
    // Nor at the copy of a list of message IDs.
    {".*/n?spamdict.lst", {no_loss, ids, behind}},
    {".*(/0006/|/0006/base.rgd|/0006/prepared.txt|/cashe.rgd|/~selective.txt|/~stat.bin)", {no_loss, behind}},
};

const price& price_of(const std::string& change) {
    static const price nothing = {"", {no_loss}};
    for (const price& each : prices)
        if (std::regex_match(change, std::regex(each.change)))
            return each;
    return nothing;
}

TEST(engine_failure, costs_what_is_told) {
    trained_base& base = the_base();
    board& all = shared_board();
    std::uint32_t asked = 0; // in the first transaction
    const auto run = [&](const plan& wanted) {
        all.clear();
        base.restore("waiting");
        const int child = base.start(wanted, [] { return run_engine(two_trainings); });
        wait_for_halt(all);
        files then = base.content(true);
        asked = all.asked;
        all.resume = 1;
        EXPECT_EQ(trained_base::join(child), 0);
        return then;
    };
    run({});
    const std::uint32_t points = asked;
    EXPECT_GT(points, 300U);
    tally outcomes("Failure of each change in a transaction (" + std::to_string(points) +
                   " changes; errors 5, 32, 112, 1450)");
    unsigned turn = 0;
    const unsigned step = stride(100);
    for (const std::uint32_t error : {5U, 32U, 112U, 1450U})
        for (std::uint32_t index = 0; index < points; ++index) {
            if (turn++ % step != 0)
                continue;
            const files then = run({fate::fail, index, error});
            const file_change hit = all.hit_change();
            const files last = base.content(true);
            const std::string outcome = outcome_of(then, last, last_verdict());
            const std::string name = hit.what + " " + generic_name(hit.path);
            const auto& costs = price_of(name).costs;
            EXPECT_TRUE(std::ranges::find(costs, outcome) != costs.end())
                << name << " with error " << error << ": " << outcome
                << testing::PrintToString(differences(last, base.both_apart));
            outcomes.add(outcome);
        }
}

// A small disk with just so much left. One training, as far as there is room; then there is room, and
// another.
class small_disk : public testing::Test {
protected:
    void SetUp() override {
        // The mounts are seen by the test alone.
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            GTEST_SKIP() << "needs the right to mount a disk of its own: run it as root";
    }

    // What a training of the batch may need, on a disk with a saved root.
    std::uint64_t mount_disk(const std::string& state) {
        const std::string root = m_base.root();
        EXPECT_EQ(mount("tvr", root.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "size=32m,mode=700"), 0);
        m_base.restore(state);
        board& all = shared_board();
        all.clear();
        m_base.run_child({}, [&all] {
            all.asked = static_cast<std::uint32_t>(room().needed_bytes);
            return 0;
        });
        return all.asked;
    }
    void unmount() const { umount2(m_base.root().c_str(), MNT_DETACH); }

    // Trains with `free` bytes left. Whether it began.
    bool train_with(std::uint64_t free) {
        const std::string filler = m_base.path("filler");
        const std::uint64_t all_free = std::filesystem::space(m_base.root()).available;
        write_file(filler, std::string(all_free - std::min(free, all_free), 'x'));
        board& all = shared_board();
        all.clear();
        const int child = m_base.start({}, [] {
            return run_engine([](engine_driver& engine) {
                engine.wait_for_rest();
                engine.train(room().is_enough());
                halt();
                append_messages(trained_base::next_series, trained_base::batch);
                engine.train();
            });
        });
        wait_for_halt(all);
        std::filesystem::remove(filler);
        then = m_base.content(true);
        all.resume = 1;
        EXPECT_EQ(trained_base::join(child), 0);
        last = m_base.content(true);
        return !then.contains(cache_file);
    }

    static training_room room() {
        return room_for_training(platform::from_display_path(the_base().path(base_folder)));
    }

    trained_base& m_base = the_base();
    files then, last; // after the first training, and after the next
};

constexpr std::uint64_t block = 4096;
constexpr std::uint64_t start_files = 16 * block; // what a started engine has written before it looks

std::uint64_t whole_blocks(std::uint64_t bytes) {
    return (bytes + block - 1) / block * block;
}

TEST_F(small_disk, begins_no_training_without_room) {
    tally outcomes("A disk with room for a training, and from there down to none, in steps of 4 KiB");
    const std::uint64_t needed = whole_blocks(mount_disk("waiting"));
    unmount();
    std::vector<std::uint64_t> points = {needed - block, needed + start_files};
    for (std::uint64_t free = 0; free < needed - block; free += block * stride(64))
        points.push_back(free);
    for (const std::uint64_t free : points) {
        SCOPED_TRACE(std::to_string(free) + " bytes of " + std::to_string(needed));
        mount_disk("waiting");
        EXPECT_EQ(train_with(free), free >= needed);
        if (last.contains(cache_file) && free <= block) {
            EXPECT_EQ(m_base.train("the restart"), verdict::rest);
            last = m_base.content(true);
            outcomes.add("the engine doesn't find its folder; the messages wait for its next start");
        } else if (free < needed) {
            EXPECT_EQ(then.at(cache_file), m_base.before.at(cache_file));
            EXPECT_EQ(atoms_of(then), atoms_of(m_base.before));
            outcomes.add("nothing is changed, and the messages wait");
        } else {
            trained_base::expect_equal("with room", then, m_base.after);
            outcomes.add("trained to the same bytes");
        }
        trained_base::expect_equal("with the next training", last,
                                   free < needed ? m_base.both_together : m_base.both_apart);
        unmount();
    }
}

// What grows with the batch is counted, too: it trains with just the room that it asks for.
TEST_F(small_disk, is_enough_for_many_messages) {
    mount_disk("waiting");
    m_base.append(9, 1500);
    m_base.save("many");
    unmount();
    const std::uint64_t needed = whole_blocks(mount_disk("many"));
    EXPECT_TRUE(train_with(2 * needed));
    const files expected = then;
    unmount();
    for (const std::uint64_t free : {needed - block, needed + start_files}) {
        mount_disk("many");
        EXPECT_EQ(train_with(free), free >= needed);
        EXPECT_TRUE(free < needed || are_equal(then, expected));
        unmount();
    }
}

} // namespace
} // namespace tvr::torture
