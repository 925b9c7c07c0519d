# The export tests parse the LandXML and SVG output with pugixml; the library never links it.
find_package(pugixml REQUIRED)
target_link_libraries(test_surface PRIVATE pugixml::pugixml)
