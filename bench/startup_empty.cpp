// A process that does nothing: what the start of any other is compared with.

int main() { return 0; }
