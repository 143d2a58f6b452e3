# Said when what the page is made with cannot be had.
message(FATAL_ERROR "npm could not fetch what the report's page is made with; give it its registry or a filled cache, or "
                    "do without reports: RAVEL_NPM=OFF ./dev ..., or configure with -DRAVEL_NPM=OFF")
