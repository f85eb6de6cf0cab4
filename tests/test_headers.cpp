// Empty: the precompiled headers of the tests are made for it.
