-- wrk: the editor's search-results form post (page 2 of one city, ordered by name).
wrk.method = "POST"
wrk.body = "kivEditDatabase_Action=Search+Now&kivEditDatabase_Name=People" ..
           "&kivEditDatabase_SearchString=City+%3D+%27Lyon%27+ORDER+BY+Name&kivEditDatabase_ResultsPage=2"
wrk.headers["Content-Type"] = "application/x-www-form-urlencoded"
