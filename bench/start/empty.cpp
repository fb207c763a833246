// The least program, against which the start of others is measured.
int main() {}
