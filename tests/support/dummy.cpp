// Keeps the support library non-empty while it has no other sources.
namespace kora::test {
int support_library_anchor = 0;
}
