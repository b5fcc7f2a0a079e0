// A library with nothing in it: what each load of one costs.
int startupFloor;
