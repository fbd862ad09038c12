"""What the tools share. It stands beside them, in the tree and where they are installed, and is no interface of its own."""
