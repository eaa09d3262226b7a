// icicle.cpp - see icicle.h.
#include "regions/icicle.h"

#include "regions/report.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>

namespace {

int32_t area_of(const KipxSTnode *node) {
    return static_cast<const KipxWTSregion *>(node->data)->area;
}

constexpr double panel_width = 900, panel_height = 560, margin = 56, least_width = 0.5;

struct Panel {
    const RegionTree &tree;
    std::vector<std::vector<size_t>> children;
    double left, scale;    // where the root begins; units a pixel
    int32_t top_level = 0; // the root's
    double step = 1;       // units a level
    std::string *out;

    template<class... Values>
    void append(fmt::format_string<Values...> format, Values &&...values) const {
        fmt::format_to(std::back_inserter(*out), format, std::forward<Values>(values)...);
    }

    double y(int32_t level) const { return margin + 12 + std::abs(level - top_level) * step; }
    double width(size_t node) const { return tree.nodes[node].area * scale; }
};

Panel panel_for(const RegionTree &tree, double left, std::string *out) {
    const auto &nodes = tree.nodes;
    Panel panel{tree, {}, left, panel_width / nodes[0].area, nodes[0].level, 1, out};
    int32_t deepest = 1;
    panel.children.resize(nodes.size());
    for (size_t i = 0; i < nodes.size(); ++i) {
        deepest = std::max(deepest, std::abs(nodes[i].level - nodes[0].level));
        if (nodes[i].parent >= 0 && panel.width(i) >= least_width)
            panel.children[size_t(nodes[i].parent)].push_back(i);
    }
    panel.step = (panel_height - 12) / deepest;
    return panel;
}

// A block from where the region joins the one around it down to its own level. Regions that hardly
// differ in area from the only one below them are drawn as one block with it.
void draw_block(const Panel &panel, size_t node, double x, double top) {
    const auto &nodes = panel.tree.nodes;
    const double width = panel.width(node);
    size_t last = node;
    while (nodes[node].id == 0 && panel.children[last].size() == 1) {
        const size_t below = panel.children[last][0];
        if (width - panel.width(below) > least_width || nodes[below].id) break;
        last = below;
    }
    const double bottom = panel.y(nodes[last].level);
    const int32_t grey = 30 + nodes[last].level * 190 / 255;
    const std::string name = nodes[node].id ? fmt::format("region {}, ", nodes[node].id) : "";
    panel.append("<g><title>{}level {}, {} pixels</title><rect x=\"{:.1f}\" y=\"{:.1f}\" "
                 "width=\"{:.1f}\" height=\"{:.1f}\" fill=\"#{:02x}{:02x}{:02x}\"/>",
                 name, nodes[node].level, nodes[node].area, x, top, width,
                 std::max(bottom - top, 0.4), grey, grey, grey);
    if (nodes[node].id)
        panel.append("<rect x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" height=\"3\" "
                     "fill=\"{}\"/>",
                     x, bottom - 3, std::max(width, 2.0),
                     panel.tree.bright ? "#ff7800" : "#288cff");
    *panel.out += "</g>\n";
    double used = 0;
    for (const size_t child : panel.children[last]) used += panel.width(child);
    const double gap = (panel.width(last) - used) / double(panel.children[last].size() + 1);
    double at = x + (width - panel.width(last)) / 2 + gap;
    for (const size_t child : panel.children[last]) {
        draw_block(panel, child, at, bottom);
        at += panel.width(child) + gap;
    }
}

void draw_axis(const Panel &panel) {
    const int32_t direction = panel.tree.bright ? 1 : -1;
    const auto &nodes = panel.tree.nodes;
    int32_t end = panel.top_level;
    for (const TreeNode &node : nodes)
        end = direction > 0 ? std::max(end, node.level) : std::min(end, node.level);
    for (int32_t level = 0; level <= 256; level += 32) {
        const int32_t shown = std::min(level, 255);
        if ((shown - panel.top_level) * direction < 0 || (end - shown) * direction < 0) continue;
        panel.append("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"end\">{}</text>"
                     "<line x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" y2=\"{:.1f}\" "
                     "stroke=\"#ccc\"/>\n",
                     panel.left - 8, panel.y(shown) + 4, shown, panel.left - 4, panel.y(shown),
                     panel.left + panel_width, panel.y(shown));
    }
    panel.append("<text x=\"{:.1f}\" y=\"{:.1f}\">{} regions: {}, {} of them stable</text>\n",
                 panel.left, margin - 10, panel.tree.bright ? "bright" : "dark", nodes.size(),
                 std::count_if(nodes.begin(), nodes.end(), [](const TreeNode &n) { return n.id; }));
}

// What XML does not take as it is; bytes that are no UTF-8 are replaced as JSON replaces them.
std::string xml_text(const std::string &text) {
    const nlohmann::json held = text;
    const std::string sound =
        nlohmann::json::parse(held.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    std::string out;
    for (const char c : sound)
        if (c == '<')
            out += "&lt;";
        else if (c == '&')
            out += "&amp;";
        else
            out += uint8_t(c) < 32 ? ' ' : c;
    return out;
}

} // namespace

RegionTree tree_of(const Finder &finder, bool bright) {
    std::vector<std::pair<const KipxWTSregion *, int32_t>> ids;
    for (const Region &region : finder.regions())
        ids.emplace_back(region.record, int32_t(ids.size()) + 1);
    std::sort(ids.begin(), ids.end());
    const auto id_of = [&](const KipxWTSregion *record) {
        const auto found = std::lower_bound(ids.begin(), ids.end(), std::pair(record, 0));
        return found != ids.end() && found->first == record ? found->second : 0;
    };
    const KipxST *tree = finder.tree(bright);
    RegionTree out;
    out.bright = bright;
    std::vector<std::pair<const KipxSTnode *, int32_t>> open;
    if (tree && tree->root) open.emplace_back(tree->root, -1);
    std::vector<const KipxSTnode *> children;
    while (!open.empty()) {
        const auto [node, parent] = open.back();
        open.pop_back();
        const auto *record = static_cast<const KipxWTSregion *>(node->data);
        const auto place = int32_t(out.nodes.size());
        children.clear();
        for (const KipxSTnode *child = node->child; child; child = child->next)
            children.push_back(child);
        out.nodes.push_back({level_of(record, bright), record->area, parent,
                             uint32_t(children.size()), id_of(record)});
        std::stable_sort(children.begin(), children.end(),
                         [](auto *a, auto *b) { return area_of(a) < area_of(b); });
        for (const KipxSTnode *child : children) open.emplace_back(child, place);
    }
    return out;
}

namespace {

// A branch is a line: the region and those below it, as long as there is one only.
void append_branch(std::string &out, const RegionTree &tree,
                   const std::vector<std::vector<size_t>> &children, size_t node, uint32_t indent,
                   uint32_t depth) {
    const auto &nodes = tree.nodes;
    size_t last = node, regions = 1;
    std::string stable;
    for (;; last = children[last][0], ++regions) {
        if (nodes[last].id)
            stable += fmt::format("{} {} ({} px, region {})", stable.empty() ? ", stable at" : ",",
                                  nodes[last].level, nodes[last].area, nodes[last].id);
        if (children[last].size() != 1) break;
    }
    out.append(2 * size_t(indent), ' ');
    out += fmt::format("level {}", nodes[node].level);
    if (last != node) out += fmt::format(" to {}", nodes[last].level);
    out += fmt::format(": {}", nodes[node].area);
    if (last != node) out += fmt::format(" to {}", nodes[last].area);
    out += " px" + stable;
    if (children[last].size() > 1 && indent >= depth)
        out += fmt::format(", {} more below", children[last].size());
    out += "\n";
    if (indent >= depth) return;
    for (const size_t child : children[last])
        append_branch(out, tree, children, child, indent + 1, depth);
}

} // namespace

std::string tree_text(const RegionTree &tree, uint32_t depth, int32_t smallest) {
    std::string out;
    if (tree.nodes.empty()) return out;
    std::vector<std::vector<size_t>> children(tree.nodes.size());
    for (size_t i = 1; i < tree.nodes.size(); ++i)
        if (tree.nodes[i].area >= smallest) children[size_t(tree.nodes[i].parent)].push_back(i);
    append_branch(out, tree, children, 0, 0, depth);
    return out;
}

std::string tree_json(const std::vector<RegionTree> &trees, const std::string &source,
                      int32_t smallest) {
    auto out = nlohmann::ordered_json::object();
    out["kipx"] = KIPX_VERSION;
    out["image"] = source;
    for (const RegionTree &tree : trees) {
        auto &list = out[tree.bright ? "bright" : "dark"] = nlohmann::ordered_json::array();
        for (size_t i = 0; i < tree.nodes.size(); ++i) {
            const TreeNode &node = tree.nodes[i];
            if (i > 0 && node.area < smallest) continue;
            list.push_back({{"id", i},
                            {"parent", nullptr},
                            {"level", node.level},
                            {"area", node.area},
                            {"children", node.children},
                            {"stable", node.id != 0},
                            {"region", nullptr}});
            if (node.parent >= 0) list.back()["parent"] = node.parent;
            if (node.id) list.back()["region"] = node.id;
        }
    }
    return json_lines(out);
}

std::string icicle_svg(const std::vector<RegionTree> &trees, const std::string &title) {
    const double width = margin + double(trees.size()) * (panel_width + margin);
    std::string out = fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0:.0f} {1:.0f}\" "
        "width=\"{0:.0f}\" height=\"{1:.0f}\" font-family=\"sans-serif\" font-size=\"13\">\n"
        "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
        "<text x=\"56\" y=\"24\" font-size=\"16\">{2}</text>\n",
        width, panel_height + 2 * margin, xml_text(title));
    double left = margin;
    for (const RegionTree &tree : trees) {
        if (!tree.nodes.empty()) {
            const Panel panel = panel_for(tree, left, &out);
            draw_axis(panel);
            draw_block(panel, 0, left, margin);
        }
        left += panel_width + margin;
    }
    return out + fmt::format("<text x=\"56\" y=\"{:.0f}\">grey level downwards from the whole "
                             "picture; width: area; coloured: stable regions</text>\n</svg>\n",
                             panel_height + margin + 28);
}
