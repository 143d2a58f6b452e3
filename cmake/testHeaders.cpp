// A program without tests: what it is compiled for is the headers that all tests share, precompiled.
