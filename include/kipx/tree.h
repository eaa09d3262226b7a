/* kipx/tree.h - component trees: nodes, the tree record, and the builder that owns the memory.
 *
 * Gives    a first-child/next-sibling tree with three walks (KipxAGT*), the tree record that a
 *          caller holds (KipxST), and the builder from whose storage nodes and data records are
 *          taken (KipxSTB). A concrete builder is made by a constant chain of tagged records.
 * Promises walks and counts need constant memory, whatever the depth of the tree. A null argument
 *          gives null, 0 or nothing. Emptying a tree gives all of its memory back in one step.
 * Costs    a node is one block of a storage; emptying is one roll-back, and one walk when nodes need
 *          disposal. Pre-order, post-order and deep counts read each link once; see KipxAGTwalk.
 * Owner    a builder fills one tree at a time, a tree is filled by one builder at most. Closing a
 *          tree can close its builder and the other way round; the arguments say which. A storage
 *          that a builder opened goes with the builder; a storage that the caller gave is rolled
 *          back, never closed. One thread at a time; chains may be shared.
 */
#ifndef KIPX_TREE_H
#define KIPX_TREE_H

#include <kipx/api.h>
#include <zu/zu.h>

KIPX_BEGIN

/* ---- nodes ---------------------------------------------------------------------------------- */

typedef struct KipxSTnode {
    struct KipxSTnode *next;   /* next sibling, or null */
    struct KipxSTnode *child;  /* first child, the one added last, or null */
    struct KipxSTnode *parent; /* null for the root */
    void *data;                /* data record, whose first word points back at the node; or null */
} KipxSTnode;

/* Called during a walk; what the result means depends on the order (KipxAGTwalk). A visitor must
 * not relink the nodes of the tree that is being walked. */
typedef int32_t (*KipxAGTvisitor)(KipxSTnode *node, void *arg, int32_t index);

enum { KIPX_PREORDER = 1, KIPX_INORDER = 2, KIPX_POSTORDER = 3 };

/* Makes child the first child of parent; its later siblings are the older children. Returns parent.
 * The child must hang nowhere else. */
KIPX_API KipxSTnode *KipxAGTaddchild(KipxSTnode *parent, KipxSTnode *child);
/* The same linking; returns what was the first child before. */
KIPX_API KipxSTnode *__KipxAGTaddchild(KipxSTnode *parent, KipxSTnode *child);

/* Number of children; with deep non-zero, of all descendants (modulo 2^32). */
KIPX_API uint32_t KipxAGTcountChildren(const KipxSTnode *node, int32_t deep);

/* Binds a data record and a node to each other. A null record only clears the node's data.
 * Returns node. */
KIPX_API KipxSTnode *KipxDGTnodeData(KipxSTnode *node, void *data);

typedef struct KipxST KipxST;
typedef struct KipxSTB KipxSTB;

/* Walks a tree, or a node and what lies below it; siblings and ancestors of that node are not
 * visited. Children go newest first. Parent links are relied upon, as KipxAGTaddchild sets them.
 *
 * KIPX_PREORDER: a node before its children, index 0. The visitor returns 1 or more to go on; 0 to
 * end the whole walk; -1 to skip the node's children; -2 or less to skip the node's children and
 * its later siblings, after which the walk goes on behind the parent.
 *
 * KIPX_INORDER: a leaf once, with index -1; a node with several children between each two of them,
 * with the number of the gap from 0; a node with one child once after it, with index 0. Result 0
 * ends the walk, any other goes on. The number of a gap is looked up again on the way back to a
 * node: at most 16 links, or up to the number of children when the way back leads out of more than
 * 256 levels that are each past their 16th child.
 *
 * KIPX_POSTORDER: a node after its children, index 0. Result 0 ends the walk, any other goes on.
 * The visitor may release the memory of the node that it is given.
 *
 * Any other order does nothing. */
KIPX_API void KipxAGTwalk(KipxST *tree, uint32_t order, KipxAGTvisitor visitor, void *arg);
KIPX_API void KipxAGTwalkFromNode(KipxSTnode *node, uint32_t order, KipxAGTvisitor visitor,
                                  void *arg);

/* ---- the interface chain of a builder ------------------------------------------------------- */

/* A chain is a run of constant records laid end to end, each a multiple of 8 bytes long and aligned
 * to 8; a tag of 0 ends it. Every record begins with these two words. A record whose size is below
 * 8 or no multiple of 8 ends the chain too; one that is smaller than its tag asks for counts as
 * missing. Tags are four-character codes, first character in the most significant byte. */
typedef struct KipxIFrecord {
    uint32_t tag;
    uint32_t size; /* bytes, this head included: the distance to the next record */
} KipxIFrecord;

#define KIPX_TAG_STBL UINT32_C(0x7374626C)

/* The record "stbl". Operations may be null. */
typedef struct KipxSTBIF {
    uint32_t tag;  /* KIPX_TAG_STBL */
    uint32_t size; /* 32 */
    /* The function to be called as (node, builder, 0) on every node, children before their parent,
     * before the tree is emptied; its result is not read. Null when nodes need no disposal. */
    KipxAGTvisitor (*getdisposer)(KipxSTB *builder);
    /* After a tree was attached. */
    void (*onattach)(KipxSTB *builder, const struct KipxSTBIF *record);
    /* Before the builder lets go of its emptied tree. */
    void (*ondetach)(KipxSTB *builder, const struct KipxSTBIF *record, KipxST *tree);
} KipxSTBIF;

/* ---- the tree record ------------------------------------------------------------------------ */

struct KipxST {
    KipxSTnode *root;                                 /* null when the tree is empty */
    void (*onattach)(KipxST *tree, KipxSTB *builder); /* a builder attached itself; or null */
    void (*onclear)(KipxST *tree, KipxSTB *builder);  /* emptied: nodes disposed of, root not yet
                                                         null; or null */
    void (*dealloc)(void *tree);                      /* frees this record; or null */
    KipxSTB *builder;                                 /* attached builder, or null */
};

/* Makes the tree empty, with no builder, and attaches the given one. Hooks and dealloc are the
 * caller's. Null when attaching failed. */
KIPX_API KipxST *KipxSTinit(KipxST *tree, KipxSTB *builder);
/* With a tree: KipxSTinit. With a builder alone: empties and detaches what it had, and gives its
 * embedded tree. With neither: a record from malloc, which KipxSTclose frees. */
KIPX_API KipxST *KipxSTopen(KipxST *tree, KipxSTB *builder);
/* KipxSTfini, and then dealloc unless the tree lives in its builder. */
KIPX_API void KipxSTclose(KipxST *tree, int32_t keep);
/* Empties the tree and separates it from its builder, which is closed when keep is 0. Returns the
 * tree; null for a builder's embedded tree, which is the builder's to free. */
KIPX_API KipxST *KipxSTfini(KipxST *tree, int32_t keep);
/* Empties the tree; detach non-zero separates it from its builder as well. A tree without a builder
 * comes back unchanged. */
KIPX_API KipxST *KipxSTclear(KipxST *tree, int32_t detach);
/* Attaches the tree to builder, or detaches it when builder is null. Null when refused. */
KIPX_API KipxST *KipxSTsetbuilder(KipxST *tree, KipxSTB *builder);
KIPX_API KipxST *__KipxST_setbuilder(KipxST *tree, KipxSTB *builder); /* builder not null */

/* ---- the builder ---------------------------------------------------------------------------- */

#define KIPX_STB_INITIALISED UINT16_C(0x1)
#define KIPX_STB_FROM_STORAGE UINT16_C(0x10) /* KipxSTBopen took the builder from its storage */
#define KIPX_STB_OWN_STORAGE UINT16_C(0x20)  /* and opened that storage */

/* The head; a concrete builder's extension area of extsize bytes follows at offset 168. */
struct KipxSTB {
    const void *interface_chain; /* chain of tagged records */
    void *specialisation;        /* the concrete builder's own; zero here */
    KipxST *tree;                /* attached tree, or null */
    uint16_t flags;              /* KIPX_STB_* */
    uint16_t extsize;            /* bytes */
    ZuSMEMSTG *storage;          /* nodes and records come from here; null: not yet opened */
    ZuSMEMSTG *parent;           /* an embedded storage draws on it; null: on the heap */
    ZuSMEMSTG embedded_storage;
    ZuSMEMSTATE saved; /* the storage's mark when the builder began to use it */
    KipxST embedded_tree;
};

/* Initialises a builder of 168 + extsize bytes, zeroed or ended by KipxSTBfini. chain: its
 * interface, or null; tree: an external tree to attach, or null; storage: where nodes come from, or
 * null to open one inside the builder on first use, drawing on parent (null: the heap). An
 * initialised builder comes back unchanged. Null when builder is null or extsize exceeds 65535. */
KIPX_API KipxSTB *KipxSTBinit(KipxSTB *builder, const void *chain, uint32_t extsize, KipxST *tree,
                              ZuSMEMSTG *storage, ZuSMEMSTG *parent);
/* The same on zero-filled memory. With builder null the block is taken from storage, and without a
 * storage from one that is opened for it, drawing on parent. Null when memory is short; what was
 * opened is closed again. */
KIPX_API KipxSTB *KipxSTBopen(KipxSTB *builder, const void *chain, uint32_t extsize, KipxST *tree,
                              ZuSMEMSTG *storage, ZuSMEMSTG *parent);
/* KipxSTBfini, and then gives back what KipxSTBopen took. */
KIPX_API void KipxSTBclose(KipxSTB *builder, int32_t flag);
/* Empties and detaches the tree; flag 0 closes an external tree too. Destroys an embedded storage,
 * rolls any other back. Returns builder, which may be initialised again. */
KIPX_API KipxSTB *KipxSTBfini(KipxSTB *builder, int32_t flag);
/* Empties the tree, detaches it when keep is 0, and rolls the storage back: whatever was taken from
 * it since the builder was initialised is released. Returns builder. */
KIPX_API KipxSTB *KipxSTBclear(KipxSTB *builder, int32_t keep);
/* Attaches an external tree, after KipxSTBclear (builder, 0); null only detaches. The tree that is
 * attached already changes nothing. Null for the builder's own embedded tree while that is not
 * attached, and for a builder that is not initialised. */
KIPX_API KipxSTB *KipxSTBxtrntree(KipxSTB *builder, KipxST *tree);
/* The attached tree; the embedded one is attached when there is none. */
KIPX_API KipxST *__KipxSTBtree(KipxSTB *builder);
/* Makes node (or null) the root of that tree, and returns the tree. */
KIPX_API KipxST *__KipxSTBrootnode(KipxSTB *builder, KipxSTnode *node);
/* A zero-filled node, or null when the storage gives nothing. */
KIPX_API KipxSTnode *KipxSTBnewnode(KipxSTB *builder);

KIPX_END

#endif
