// Keeps the support library non-empty until its decoders arrive.
namespace makevern3d_test_support { int placeholder = 0; }
