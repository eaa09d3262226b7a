/* walk_tree.c - build a tree of named nodes, walk it in all three orders, and release it.
 *
 * The nodes come from a builder: nobody frees them one by one. The data records are ours; their
 * first word is the link back to the node.
 */
#include <stdio.h>
#include <string.h>

#include <kipx/kipx.h>

struct place {
    KipxSTnode *node;
    const char *name;
    int parent; /* index of the place around it, or -1 */
};

static struct place places[] = {{NULL, "Earth", -1}, {NULL, "Europe", 0}, {NULL, "Asia", 0},
                                {NULL, "Norway", 1}, {NULL, "Spain", 1},  {NULL, "Oslo", 3},
                                {NULL, "Japan", 2}};
enum { place_count = sizeof places / sizeof places[0] };

/* Appends the name of the node to the text in arg. */
static int32_t note(KipxSTnode *node, void *arg, int32_t index) {
    (void)index;
    char *text = arg;
    if (*text) strcat(text, " ");
    strcat(text, ((struct place *)node->data)->name);
    return 1; /* go on */
}

/* The same, but does not look into Europe. */
static int32_t note_but_europe(KipxSTnode *node, void *arg, int32_t index) {
    note(node, arg, index);
    return strcmp(((struct place *)node->data)->name, "Europe") == 0 ? -1 : 1;
}

static int walk(KipxST *tree, uint32_t order, KipxAGTvisitor visitor, const char *expected) {
    char text[200] = "";
    KipxAGTwalk(tree, order, visitor, text);
    printf("%s\n", text);
    return strcmp(text, expected) == 0;
}

int main(void) {
    /* A builder on a storage of its own; the environment's memory stack would do as well. */
    KipxSTB *builder = KipxSTBopen(NULL, NULL, 0, NULL, NULL, NULL);
    KipxST *tree = KipxSTopen(NULL, builder);
    if (!tree) return 1;
    for (int i = 0; i < place_count; i++) {
        KipxSTnode *node = KipxSTBnewnode(builder);
        if (!node) return 1;
        KipxDGTnodeData(node, &places[i]);
        if (places[i].parent >= 0) KipxAGTaddchild(places[places[i].parent].node, node);
    }
    __KipxSTBrootnode(builder, places[0].node);

    /* Children go newest first. */
    int right = walk(tree, KIPX_PREORDER, note, "Earth Asia Japan Europe Spain Norway Oslo");
    right &= walk(tree, KIPX_INORDER, note, "Japan Asia Earth Spain Europe Oslo Norway");
    right &= walk(tree, KIPX_POSTORDER, note, "Japan Asia Spain Oslo Norway Europe Earth");
    right &= walk(tree, KIPX_PREORDER, note_but_europe, "Earth Asia Japan Europe");
    right &= KipxAGTcountChildren(tree->root, 0) == 2 && KipxAGTcountChildren(tree->root, 1) == 6;

    KipxSTclose(tree, 0); /* closes the builder, and with it all nodes */
    return right ? 0 : 1;
}
