// region/nodes.cpp - links between nodes, and walks that go along them without recursion.
//
// A walk keeps the node in hand and returns along parent links, never above the node it began at; a
// null parent link on the way ends the walk. Only the in-order walk must know more on its way back,
// the number of the child that it comes from; see GapNumbers.
#include <kipx/tree.h>

namespace kipx {

namespace {

// The numbers of the children that lead from the start of an in-order walk to the node in hand, as
// far as they are worth remembering: small ones are counted again from the head of the children's
// list, large ones are kept in a ring, in which the deepest survive. An entry is known by its node,
// so that one that was overwritten is not mistaken for another. Constant memory, and the time of a
// walk stays linear but for trees of more nodes than memory holds.
class GapNumbers {
public:
    void descend(KipxSTnode *child, uint32_t number) {
        if (number >= worth_keeping) ring_[top_++ % size] = {child, number};
    }
    uint32_t climb(KipxSTnode *child) {
        const Entry &newest = ring_[(top_ - 1) % size];
        if (top_ && newest.child == child) {
            --top_;
            return newest.number;
        }
        uint32_t number = 0;
        if (!child->parent) return number;
        for (auto *other = child->parent->child; other && other != child; other = other->next)
            ++number;
        return number;
    }

private:
    static constexpr uint32_t worth_keeping = 16, size = 256;
    struct Entry {
        KipxSTnode *child;
        uint32_t number;
    };
    Entry ring_[size];
    uint32_t top_ = 0;
};

KipxSTnode *first_leaf(KipxSTnode *node) {
    while (node->child) node = node->child;
    return node;
}

void walk_preorder(KipxSTnode *start, KipxAGTvisitor visitor, void *arg) {
    KipxSTnode *node = start;
    while (node) {
        int32_t result = visitor(node, arg, 0);
        if (result == 0) return;
        if (result > 0 && node->child) {
            node = node->child;
            continue;
        }
        bool siblings = result >= -1;
        while (node && node != start && !(siblings && node->next)) {
            node = node->parent;
            siblings = true;
        }
        if (!node || node == start) return;
        node = node->next;
    }
}

void walk_inorder(KipxSTnode *start, KipxAGTvisitor visitor, void *arg) {
    GapNumbers gaps;
    KipxSTnode *node = start;
    uint32_t number = 0; // of node among its siblings
    while (node) {
        while (node->child) {
            if (node != start) gaps.descend(node, number);
            node = node->child;
            number = 0;
        }
        if (visitor(node, arg, -1) == 0) return;
        while (node != start && !node->next) {
            KipxSTnode *parent = node->parent;
            if (!parent) return;
            if (number == 0 && visitor(parent, arg, 0) == 0) return;
            node = parent;
            number = node == start ? 0 : gaps.climb(node);
        }
        if (node == start || !node->parent) return;
        if (visitor(node->parent, arg, static_cast<int32_t>(number)) == 0) return;
        node = node->next;
        ++number;
    }
}

void walk_postorder(KipxSTnode *start, KipxAGTvisitor visitor, void *arg) {
    KipxSTnode *node = first_leaf(start);
    while (node) {
        // Read first: the visitor may release the node.
        KipxSTnode *next = node->next, *parent = node->parent;
        bool last = node == start;
        if (visitor(node, arg, 0) == 0 || last) return;
        node = next ? first_leaf(next) : parent;
    }
}

int32_t count_visit(KipxSTnode *, void *arg, int32_t) {
    ++*static_cast<uint32_t *>(arg);
    return 1;
}

} // namespace

} // namespace kipx

KipxSTnode *KipxAGTaddchild(KipxSTnode *parent, KipxSTnode *child) {
    __KipxAGTaddchild(parent, child);
    return parent;
}

KipxSTnode *__KipxAGTaddchild(KipxSTnode *parent, KipxSTnode *child) {
    if (!parent) return nullptr;
    KipxSTnode *before = parent->child;
    if (!child) return before;
    child->parent = parent;
    child->next = before;
    parent->child = child;
    return before;
}

uint32_t KipxAGTcountChildren(const KipxSTnode *node, int32_t deep) {
    uint32_t count = 0;
    if (!node) return count;
    if (!deep) {
        for (auto *child = node->child; child; child = child->next) ++count;
        return count;
    }
    // The walk hands the nodes to the visitor only, which changes none.
    kipx::walk_preorder(const_cast<KipxSTnode *>(node), kipx::count_visit, &count);
    return count - 1;
}

KipxSTnode *KipxDGTnodeData(KipxSTnode *node, void *data) {
    if (!node) return nullptr;
    node->data = data;
    if (data) *static_cast<KipxSTnode **>(data) = node;
    return node;
}

void KipxAGTwalk(KipxST *tree, uint32_t order, KipxAGTvisitor visitor, void *arg) {
    if (tree) KipxAGTwalkFromNode(tree->root, order, visitor, arg);
}

void KipxAGTwalkFromNode(KipxSTnode *node, uint32_t order, KipxAGTvisitor visitor, void *arg) {
    if (!node || !visitor) return;
    if (order == KIPX_PREORDER) kipx::walk_preorder(node, visitor, arg);
    if (order == KIPX_INORDER) kipx::walk_inorder(node, visitor, arg);
    if (order == KIPX_POSTORDER) kipx::walk_postorder(node, visitor, arg);
}
