#include "tools/log_listener/log_listener.h"

int main(int argc, char** argv) { return log_listener::LogListenerMain(argc, argv); }
