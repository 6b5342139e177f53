#include "torture/trained_base.h"

#include <gtest/gtest.h>

#include "support/file_bytes.h"

namespace tvr::torture {

namespace fs = std::filesystem;

namespace {

// By which the engine finds out whether it may write to a folder.
bool is_probe(const std::string& path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    return name.starts_with("tst") && name.ends_with(".tmp");
}

void drop_leftovers(files& content) {
    const auto is_unmarked = [&](const std::string& path) {
        return path.starts_with(transact_folder + "000") &&
               !content.contains(path.substr(0, transact_folder.size() + 5) + "prepared.txt");
    };
    files kept;
    for (const auto& [path, bytes] : content)
        if (path != transact_folder + "lock.bin" && !path.starts_with("tmp/") && !is_probe(path) &&
            !is_unmarked(path))
            kept[path] = bytes;
    content = std::move(kept);
}

} // namespace

trained_base::trained_base() {
    make_bare();
    run("the history", [](engine_driver& engine) {
        for (unsigned series = 1; series <= history; ++series) {
            append_messages(series, batch);
            engine.train();
        }
        append_messages(waiting, batch);
    });
    box.save("waiting");
    before = content();
    train("the transaction");
    box.save("trained");
    after = content();
    train_next();
    both_apart = content();
    box.restore("waiting");
    train_next();
    both_together = content();
    box.restore("waiting");
    remove(cache_file);
    train_next();
    next_only = content();
    m_complete = true;
}

files trained_base::content(bool any_archive) {
    files all = box.content();
    drop_leftovers(all);
    for (const char* name : {"data.trr", "data.0"})
        if (const auto found = all.find(base_folder + name); found != all.end()) {
            if (!m_complete)
                m_archives.insert(found->second);
            else if (!any_archive && !m_archives.contains(found->second))
                ADD_FAILURE() << name << " is damaged";
            all.erase(found);
        }
    return all;
}

verdict trained_base::run(const std::string& what, const std::function<void(engine_driver&)>& driver) {
    const int code = in_child(box, {}, [&] { return run_engine(driver); });
    if (code != 0)
        ADD_FAILURE() << what << ": the engine has crashed, " << code;
    return last_verdict();
}

verdict trained_base::restart() {
    return run("the restart", [](engine_driver& engine) { engine.wait_for_rest(); });
}

verdict trained_base::train(const std::string& what) {
    return run(what, [](engine_driver& engine) { engine.train(); });
}

verdict trained_base::train_next() {
    return run("the next training", [](engine_driver& engine) {
        engine.wait_for_rest();
        append_messages(next_series, batch);
        engine.train();
    });
}

void trained_base::work(const std::function<int()>& body) {
    EXPECT_EQ(in_child(box, {}, body), 0);
}

void trained_base::append(unsigned series, unsigned count) {
    work([&] { return append_messages(series, count) ? 0 : 1; });
}

void trained_base::make_bare() {
    box.empty();
    work([] { return prepare_root(), 0; });
}

void trained_base::remove(const std::string& name) const {
    fs::remove_all(path(name));
}

void trained_base::expect_equal(const std::string& when, files found, files expected) {
    EXPECT_EQ(found[time_mark].size(), expected[time_mark].size()) << when;
    found.erase(time_mark);
    expected.erase(time_mark);
    EXPECT_EQ(differences(found, expected), std::vector<std::string>()) << when;
}

std::string trained_base::generated(const files& dictionaries) {
    auto [entry, is_new] = m_generated.try_emplace(dictionaries);
    if (is_new) {
        box.save("meanwhile");
        for (const auto& file : fs::directory_iterator(path(base_folder)))
            if (file.is_regular_file())
                fs::remove(file.path());
        for (const auto& [name, bytes] : dictionaries)
            write_file(path(name), bytes);
        write_file(path(transact_folder + "0006/prepared.txt"), std::string("prepared\0", 9));
        EXPECT_EQ(restart(), verdict::rest);
        entry->second = read_file(path(compiled_base));
        box.restore("meanwhile");
    }
    return entry->second;
}

trained_base& the_base() {
    static trained_base base;
    return base;
}

void torture(const job& each, const std::vector<std::uint32_t>& errors) {
    trained_base& base = the_base();
    base.box.restore(each.start);
    const files before = base.content(true);
    ASSERT_EQ(in_child(base.box, {}, each.work), 0) << each.name;
    EXPECT_EQ(shared_board().unseen, 0U) << shared_board().hit_change().path;
    const std::uint32_t points = errors.empty() ? shared_board().begun : shared_board().asked;
    const files after = base.content(true);
    ASSERT_TRUE(after != before) << each.name << " changes nothing";
    std::vector<plan> plans;
    for (const fate what : {fate::die_before, fate::die_within, fate::die_after})
        if (errors.empty())
            plans.push_back({.what = what});
    for (const std::uint32_t error : errors)
        plans.push_back({.what = fate::fail, .error = error});
    tally outcomes((errors.empty() ? "Death of " : "Failure in ") + std::string(each.name) + " (" +
                   std::to_string(points) + " changes)");
    const unsigned step = stride(each.usual_stride);
    unsigned turn = 0;
    unsigned missed = 0;
    for (plan wanted : plans)
        for (wanted.index = 0; wanted.index < points; ++wanted.index) {
            if (turn++ % step != 0)
                continue;
            base.box.restore(each.start);
            const int code = in_child(base.box, wanted, each.work);
            const file_change hit = shared_board().hit_change();
            if (errors.empty() ? code != killed : hit.what.empty()) {
                ++missed; // threads take turns: this time there were fewer changes
                continue;
            }
            SCOPED_TRACE(std::string(each.name) + " " + name_of(wanted.what) + " change " +
                         std::to_string(wanted.index) + " (" + std::to_string(wanted.error) +
                         "): " + hit.what + " " + hit.path);
            EXPECT_GE(code, killed);
            outcomes.add(each.judge(base.content(true), before, after));
        }
    EXPECT_LE(missed * step, points / 10);
}

} // namespace tvr::torture
