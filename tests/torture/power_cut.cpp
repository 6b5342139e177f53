#include "torture/power_cut.h"

#include <algorithm>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace tvr::torture {

namespace fs = std::filesystem;

namespace {

struct stat facts_of(const std::string& path) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0)
        throw std::runtime_error(path + " is gone");
    return facts;
}

struct stat facts_of(int file) {
    struct stat facts {};
    fstat(file, &facts);
    return facts;
}

std::string parent_of(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

// By its number: the file may have lost its name.
std::string content_of(int file) {
    return read_file("/proc/self/fd/" + std::to_string(file));
}

bool is_left_out(const std::string& path) { // memory that processes share
    return path.starts_with("run/");
}

} // namespace

disk_image::disk_image(std::string root) : m_root(std::move(root)) {
    take_all(m_root, facts_of(m_root).st_ino);
}

disk_image::node& disk_image::node_of(const std::string& path, ino_t number) {
    node& one = m_nodes[number];
    if (one.hold < 0)
        one.hold = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    return one;
}

void disk_image::take_names(const std::string& folder, ino_t number) {
    std::map<std::string, ino_t> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string path = entry.path().string();
        if (is_left_out(path.substr(m_root.size()) + (entry.is_directory() ? "/" : "")))
            continue;
        const ino_t each = facts_of(path).st_ino;
        names[entry.path().filename().string()] = each;
        node_of(path, each);
    }
    node_of(folder, number).names = std::move(names);
}

void disk_image::take_all(const std::string& folder, ino_t number) {
    take_names(folder, number);
    for (const auto& [name, each] : std::map(m_nodes.at(number).names))
        if (const std::string path = folder + name; fs::is_directory(path))
            take_all(path + "/", each);
        else
            m_nodes.at(each).content = read_file(path);
}

void disk_image::created(int file) {
    m_last.erase(facts_of(file).st_ino);
}

void disk_image::written(int file, const void* data, std::size_t size, off_t at) {
    m_last[facts_of(file).st_ino] = {static_cast<std::size_t>(at), {static_cast<const char*>(data), size}};
}

void disk_image::renamed(const std::string& from, const std::string& to) {
    m_moves.push_back({facts_of(parent_of(from)).st_ino, facts_of(parent_of(to)).st_ino,
                       from.substr(from.rfind('/') + 1), to.substr(to.rfind('/') + 1)});
}

void disk_image::synced(int file_or_folder) {
    const auto facts = facts_of(file_or_folder);
    const std::string path = fs::read_symlink("/proc/self/fd/" + std::to_string(file_or_folder)).string();
    if (!S_ISDIR(facts.st_mode)) {
        node_of(path, facts.st_ino).content = content_of(file_or_folder);
        m_last.erase(facts.st_ino);
        return;
    }
    take_names(path + "/", facts.st_ino);
    // What came from here or went there is at both ends in its new place.
    std::erase_if(m_moves, [&](const move& each) {
        if (each.to != facts.st_ino && each.from != facts.st_ino)
            return false;
        auto& old_names = m_nodes[each.from].names;
        if (const auto old = old_names.find(each.old_name);
            each.to == facts.st_ino && old != old_names.end() && each.from != each.to)
            old_names.erase(old);
        return true;
    });
}

void disk_image::walk_disk(ino_t folder, const std::string& path, bool as_it_was, files& state) const {
    for (const auto& [name, number] : m_nodes.at(folder).names) {
        const node& each = m_nodes.at(number);
        if (S_ISDIR(facts_of(each.hold).st_mode)) {
            state[path + name + "/"];
            walk_disk(number, path + name + "/", as_it_was, state);
        } else {
            state[path + name] = as_it_was ? each.content.value_or("") : content_of(each.hold);
        }
    }
}

std::map<std::string, files> disk_image::states() const {
    std::map<std::string, files> all;
    for (const auto& entry : fs::recursive_directory_iterator(m_root)) {
        const std::string path = entry.path().string().substr(m_root.size());
        if (is_left_out(path))
            continue;
        if (entry.is_directory()) {
            for (const char* variant : {"zeros", "old content", "last write"})
                all[variant][path + "/"];
            continue;
        }
        const std::string now = read_file(entry.path());
        const ino_t number = facts_of(entry.path().string()).st_ino;
        const auto known = m_nodes.find(number);
        const std::string old = known == m_nodes.end() ? "" : known->second.content.value_or("");
        std::string zeros = old;
        zeros.resize(now.size());
        all["zeros"][path] = old == now ? now : zeros;
        all["old content"][path] = old;
        if (const auto last = m_last.find(number); last != m_last.end()) {
            zeros.resize(std::max(zeros.size(), last->second.at + last->second.bytes.size()));
            zeros.replace(last->second.at, last->second.bytes.size(), last->second.bytes);
        }
        all["last write"][path] = zeros;
    }
    const ino_t root = facts_of(m_root).st_ino;
    walk_disk(root, "", false, all["old names"]);
    walk_disk(root, "", true, all["old names and content"]);
    return all;
}

} // namespace tvr::torture
