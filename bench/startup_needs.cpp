extern int startupFloor;

// Needs the empty library: what a second one costs that the loader has to search for.
int & startupNeeds = startupFloor;
