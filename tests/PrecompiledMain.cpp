// Carries the headers that Precompiled.h names for the tests that use them.
int main() {}
