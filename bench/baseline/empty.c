/* A program that does nothing. Its run time is the least that any program needs on this machine. */
int main(void) { return 0; }
