// Removed once the commands land.
