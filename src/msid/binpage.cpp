#include <utility>

#include "common/logger.h"
#include "msid/page_manager.h"

namespace tvr {

bool binpage::try_find(std::uint32_t at, const key11& key, std::uint32_t& out) {
    const page_view view = page(at);
    const unsigned n = view.used();
    if (view.is_leaf()) {
        const unsigned i = view.not_lower(key, n);
        out = i < n && view.key(i) == key ? view.value(i) : 0;
        return true;
    }
    if (n == 0) {
        TVR_LOG(default_log, "[DEBUG] binpage::try_find - searching in zero-zide node page detected");
        mark_damaged();
        out = 0;
        return true;
    }
    if (view.first_key() > key) {
        out = 0;
        return true;
    }
    out = view.value(view.greater(key, 1, n) - 1);
    return false;
}

std::uint32_t binpage::find(const key11& key) {
    std::uint32_t at = m_root;
    for (unsigned depth = 0; depth < tree_depth_limit && is_page(at); ++depth) {
        if (try_find(at, key, at))
            return at;
    }
    if (is_valid())
        mark_damaged();
    return 0;
}

std::uint32_t binpage::insert_in_page(std::uint32_t at, const item& entry, std::uint32_t& left,
                                      std::uint32_t& right) {
    page_view view = page(at);
    const unsigned n = view.used();
    if (view.is_leaf()) {
        const unsigned i = view.not_lower(entry.key, n);
        if (i < n && view.key(i) == entry.key) {
            view.set_flags(i, view.flags(i) | page_view::in_use);
            if (entry.value < view.value(i) || entry.replace)
                view.set_value(i, entry.value);
            return known;
        }
        if (n == page_view::slots)
            return full;
        view.open_gap(i, n);
        view.set_value(i, entry.value);
        view.set_flags(i, page_view::in_use);
        view.set_key(i, entry.key);
        return stored;
    }
    if (n == 0) {
        mark_damaged();
        return known;
    }
    if (view.first_key() > entry.key) {
        view.set_key(0, entry.key);
        return again;
    }
    const unsigned i = view.greater(entry.key, 1, n);
    left = i < 2 ? 0 : view.value(i - 2);
    right = i == n ? 0 : view.value(i);
    const std::uint32_t child = view.value(i - 1);
    if (child > again)
        return child;
    mark_damaged();
    return known;
}

bool binpage::add_child(std::uint32_t at, std::uint32_t child) {
    page_view view = page(at);
    const unsigned n = view.used();
    if (n == page_view::slots)
        return false;
    const key11 key = page(child).first_key();
    const unsigned i = view.not_lower(key, n);
    if (i == n || view.key(i) != key) {
        view.open_gap(i, n);
        view.set_key(i, key);
    }
    view.set_value(i, child);
    view.set_flags(i, page_view::in_use | page_view::inner);
    return true;
}

std::uint32_t binpage::split_in_half(std::uint32_t at) {
    const std::uint32_t fresh = allocate_page();
    if (fresh != 0)
        page(at).move_last_to_start_of(page(fresh), page_view::slots / 2);
    return fresh;
}

std::uint32_t binpage::make_root(std::uint32_t a, std::uint32_t b) {
    const std::uint32_t fresh = allocate_page();
    if (fresh != 0) {
        add_child(fresh, a);
        add_child(fresh, b);
    }
    return fresh;
}

std::uint32_t binpage::split_in_three(std::uint32_t a, std::uint32_t b) {
    const std::uint32_t fresh = allocate_page();
    if (fresh == 0)
        return 0;
    const unsigned in_a = page(a).used();
    const unsigned in_b = page(b).used();
    const unsigned third = (in_a + in_b) / 3;
    if (in_a > third)
        page(a).move_last_to_start_of(page(fresh), in_a - third);
    if (in_b > third)
        page(b).move_first_to_end_of(page(fresh), in_b - third);
    return fresh;
}

namespace {

// How many slots are to be free in each page.
struct free_targets {
    unsigned left, page, right;
};

free_targets share_out(unsigned total, bool has_left, bool has_right) noexcept {
    if (!has_right)
        return {total / 2, total - total / 2, 0};
    if (!has_left)
        return {0, total - total / 2, total / 2};
    const unsigned third = total / 3;
    const unsigned rest = total % 3;
    return {third + (rest >= 1 ? 1 : 0), third + (rest == 2 ? 1 : 0), third};
}

// Exchanges targets so that a sibling which has the right number already keeps its slots.
void swap_to_move_less(free_targets& target, unsigned free_left, unsigned free_right) noexcept {
    if (free_right != 0) {
        if (free_right == target.left)
            std::swap(target.left, target.right);
        else if (free_right == target.page)
            std::swap(target.page, target.right);
    }
    if (free_left != 0) {
        if (free_left == target.page)
            std::swap(target.page, target.left);
        else if (free_left == target.right)
            std::swap(target.right, target.left);
    }
}

} // namespace

bool binpage::balance(std::uint32_t left, std::uint32_t at, std::uint32_t right) {
    const unsigned free_right = right ? page(right).free() : 0;
    const unsigned free_left = left ? page(left).free() : 0;
    const unsigned total = free_right + free_left;
    if (total < 3)
        return false;
    free_targets target = share_out(total, left != 0, right != 0);
    swap_to_move_less(target, free_left, free_right);

    // The page gives before it takes: it is full at the start.
    if (left && free_left > target.left)
        page(at).move_first_to_end_of(page(left), free_left - target.left);
    if (right && free_right > target.right)
        page(at).move_last_to_start_of(page(right), free_right - target.right);
    if (left && free_left < target.left)
        page(left).move_last_to_start_of(page(at), target.left - free_left);
    if (right && free_right < target.right)
        page(right).move_first_to_end_of(page(at), target.right - free_right);
    return free_left != target.left || free_right != target.right;
}

void binpage::update_separators(std::uint32_t at, const key11& key, std::uint32_t left, std::uint32_t child,
                                std::uint32_t right) {
    page_view view = page(at);
    const unsigned n = view.used();
    const unsigned i = view.greater(key, 1, n);
    if (left && i >= 2)
        view.set_key(i - 2, page(left).first_key());
    if (child)
        view.set_key(i - 1, page(child).first_key());
    if (right && i < n)
        view.set_key(i, page(right).first_key());
}

binpage::place binpage::route(std::uint32_t a, std::uint32_t b, std::uint32_t c,
                              const key11& key) const noexcept {
    if (c && page(c).first_key() <= key)
        return {c, b, 0};
    if (a && page(b).first_key() > key)
        return {a, 0, b};
    return {b, a, c};
}

bool binpage::are_siblings(std::uint32_t left, std::uint32_t at, std::uint32_t right) const noexcept {
    return is_page(at) && (left == 0 || (is_page(left) && left != at)) &&
           (right == 0 || (is_page(right) && right != at && right != left));
}

binpage::outcome binpage::__insert(std::uint32_t at, std::uint32_t left, std::uint32_t right,
                                   const item& entry, unsigned depth) {
    if (depth >= tree_depth_limit || !are_siblings(left, at, right)) {
        mark_damaged();
        return {};
    }
    std::uint32_t child_left = left;
    std::uint32_t child_right = right;
    const std::uint32_t result = insert_in_page(at, entry, child_left, child_right);
    switch (result) {
    case stored:
    case known:
        return {};
    case again:
        return __insert(at, left, right, entry, depth + 1);
    case full:
        return insert_in_full_leaf(at, left, right, entry, depth);
    default:
        break;
    }

    const std::uint32_t child = result;
    const outcome below = __insert(child, child_left, child_right, entry, depth + 1);
    switch (below.what) {
    case change::none:
        break;
    case change::rebalanced:
        update_separators(at, entry.key, child_left, child, child_right);
        break;
    case change::new_after_left:
        update_separators(at, entry.key, child_left, child, 0);
        break;
    case change::new_before_right:
        update_separators(at, entry.key, 0, child, child_right);
        break;
    }
    if (below.page == 0 || add_child(at, below.page))
        return {};
    return add_child_to_full(at, left, right, below.page);
}

binpage::outcome binpage::insert_in_full_leaf(std::uint32_t at, std::uint32_t left, std::uint32_t right,
                                              const item& entry, unsigned depth) {
    const auto insert_at = [&](const place& where) {
        return __insert(where.page, where.left, where.right, entry, depth + 1);
    };
    if (at == m_root) {
        const std::uint32_t half = split_in_half(at);
        const std::uint32_t root = half ? make_root(at, half) : 0;
        if (root != 0) {
            m_root = root;
            insert_at({root, 0, 0});
        }
        return {};
    }
    if (balance(left, at, right))
        return {insert_at(route(left, at, right, entry.key)).page, change::rebalanced};
    if (left) {
        const std::uint32_t fresh = split_in_three(left, at);
        if (fresh == 0)
            return {};
        insert_at(route(left, fresh, at, entry.key));
        return {fresh, change::new_after_left};
    }
    if (right) {
        const std::uint32_t fresh = split_in_three(at, right);
        if (fresh == 0)
            return {};
        insert_at(route(at, fresh, right, entry.key));
        return {fresh, change::new_before_right};
    }
    mark_damaged(); // only the root has no sibling
    return {};
}

binpage::outcome binpage::add_child_to_full(std::uint32_t at, std::uint32_t left, std::uint32_t right,
                                            std::uint32_t child) {
    const key11 key = page(child).first_key();
    if (at == m_root) {
        const std::uint32_t half = split_in_half(at);
        if (half == 0)
            return {};
        add_child(route(0, at, half, key).page, child);
        const std::uint32_t root = make_root(at, half);
        if (root != 0)
            m_root = root;
        return {};
    }
    // deliberate: the page itself is named as new. Its parent then meets an equal key and stores the same
    // child once more; only a parent that is full makes room for it without need.
    if (balance(left, at, right) && add_child(route(left, at, right, key).page, child))
        return {at, change::rebalanced};
    if (left) {
        const std::uint32_t fresh = split_in_three(left, at);
        if (fresh == 0)
            return {};
        add_child(route(left, fresh, at, key).page, child);
        return {fresh, change::new_after_left};
    }
    if (right) {
        const std::uint32_t fresh = split_in_three(at, right);
        if (fresh == 0)
            return {};
        add_child(route(at, fresh, right, key).page, child);
        return {fresh, change::new_before_right};
    }
    mark_damaged();
    return {};
}

void binpage::insert(const item& entry) {
    if (!is_valid())
        return;
    if (entry.replace || entry.key != m_last_key || entry.value < m_last_value) {
        __insert(m_root, 0, 0, entry);
        m_last_key = entry.key;
        m_last_value = entry.value;
    }
    ++m_keycount;
}

void binpage::start_anew() {
    pmanager::start_anew();
    m_last_key = {};
    m_last_value = 0;
}

} // namespace tvr
