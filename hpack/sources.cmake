vantry_sources()
