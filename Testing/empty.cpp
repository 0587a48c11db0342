// The bench program has nothing of its own: its main is the library's. The build asks for a source.
