// A library with nothing in it: what each load of one costs.
[[gnu::visibility( "default" )]] int startupFloor;
